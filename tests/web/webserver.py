"""Starts `ryn web` on a free loopback port for a test and always stops it again."""
import json
import re
import signal
import subprocess
import urllib.error
import urllib.request


class WebServer:
    def __init__(self, ryn, *args):
        self.proc = subprocess.Popen([ryn, "web", "--listen", "127.0.0.1:0", *args],
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        line = self.proc.stdout.readline()
        found = re.search(r"(http://\S+/)", line)
        if not found:
            self.stop()
            raise RuntimeError("ryn web did not start: " + line + self.stderr)
        self.url = found.group(1)
        self.origin = self.url.rstrip("/")
        self.stderr = ""

    def stop(self):
        """Stops the server with SIGTERM (it exits cleanly, so the sanitizers check it) and returns
        its exit status; kills it when it does not end in time."""
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
        try:
            _, self.stderr = self.proc.communicate(timeout=20)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            _, self.stderr = self.proc.communicate()
        return self.proc.returncode

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.stop()

    def request(self, method, path, body=None, headers=None, raw=None, timeout=30):
        """(status, JSON or text, headers) of one request; never raises for an HTTP status."""
        data = raw if raw is not None else None if body is None else json.dumps(body).encode()
        h = {"Content-Type": "application/json"} if body is not None else {}
        h.update(headers or {})
        req = urllib.request.Request(self.url + path.lstrip("/"), data=data, method=method,
                                     headers=h)
        try:
            with urllib.request.urlopen(req, timeout=timeout) as r:
                stream = r.headers.get_content_type() == "text/event-stream"  # endless: one line
                status, hdrs = r.status, r.headers
                text = (r.readline() if stream else r.read()).decode()
        except urllib.error.HTTPError as e:
            status, text, hdrs = e.code, e.read().decode(), e.headers
        try:
            return status, json.loads(text), hdrs
        except ValueError:
            return status, text, hdrs

    def job(self, job, timeout=60):
        """Polls a backup or restore job until it is done."""
        import time
        end = time.time() + timeout
        while time.time() < end:
            status, j, _ = self.request("GET", f"/api/jobs/{job['id']}")
            if status == 200 and j["done"]:
                return j
            time.sleep(0.05)
        raise TimeoutError("job did not end")
