"""The JSON API of `ryn web` without a browser: every endpoint with good and bad input, the token,
and 50 clients polling while one restores. Run: python3 api_test.py PATH/TO/ryn"""
import http.client
import json
import os
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from webserver import WebServer

RYN = sys.argv.pop(1) if len(sys.argv) > 1 else "ryn"
JSON = {"Content-Type": "application/json"}


class Api(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = WebServer(RYN)

    @classmethod
    def tearDownClass(cls):
        status = cls.server.stop()
        assert status == 0, f"ryn web exited with {status}:\n{cls.server.stderr}"

    def call(self, method, path, body=None, **kw):
        return self.server.request(method, path, body, **kw)

    def test_requests_and_answers(self):
        # method, path, body (dict, or bytes sent as they are), status, text in the answer
        cases = [
            ("GET", "/", None, 200, "ryn web"),
            ("GET", "/dygraph.min.js", None, 200, "Dygraph"),
            ("GET", "/api/drives", None, 200, '"serial": 50001'),
            ("GET", "/api/registers?axis=0&q=POS_KP", None, 200, '"range": "0 .. 1000000"'),
            ("GET", "/api/registers?axis=0&q=MODE", None, 200, '"name": "POSITION"'),
            ("GET", "/api/registers?axis=63&q=SYNC_PER", None, 200, '"values": ["100"]'),
            ("GET", "/api/registers?axis=0&q=zzzz", None, 200, '"total": 0'),
            ("GET", "/api/registers?axis=64", None, 400, "axis"),
            ("GET", "/api/registers?axis=5", None, 404, "no drive at axis 5"),
            ("GET", "/api/registers?axis=0&limit=0", None, 400, "limit"),
            ("GET", "/api/registers?axis=x", None, 400, "axis"),
            ("GET", "/api/names?axis=0", None, 200, '"PWR"'),
            ("GET", "/api/names?axis=9", None, 404, "no drive"),
            ("POST", "/api/send", {"line": "K2.0=7"}, 200, '"answer": "K2.0=7"'),
            ("POST", "/api/send", {"line": "K2.0"}, 200, '"answer": "K2.0=7"'),
            ("POST", "/api/send", {"line": "K1.0=2000000"}, 200, "takes 0 .. 1000000"),
            ("POST", "/api/send", {"line": "K50.0=1"}, 200, "read-only"),
            ("POST", "/api/send", {"line": "K12.0=9"}, 200, "POSITION"),
            ("POST", "/api/send", {"line": "# nothing"}, 200, '"sent": false'),
            ("POST", "/api/send", {"line": "a\nb"}, 400, "one line"),
            ("POST", "/api/send", {"line": 5}, 400, "wrong type"),
            ("POST", "/api/send", {}, 400, 'lacks \\"line\\"'),
            ("POST", "/api/send", b"{not json", 400, "not a JSON object"),
            ("POST", "/api/send", b"[1,2]", 400, "not a JSON object"),
            ("GET", "/api/send", None, 405, "takes POST"),
            ("GET", "/api/nothing", None, 404, "unknown path /api/nothing"),
            ("DELETE", "/api/drives", None, 404, "unknown path"),
            ("POST", "/api/diff", {"text": "hello"}, 400, "not a parameter file"),
            ("POST", "/api/diff", {"text": "K1.0=1000\n"}, 200, '"differences": []'),
            ("POST", "/api/diff", {"text": "K1.0=5\n"}, 200, '"file": "5"'),
            ("POST", "/api/restore", {"text": 1}, 400, "wrong type"),
            ("POST", "/api/backup", {"axes": "x"}, 400, "axis"),
            ("GET", "/api/jobs/999", None, 404, "no such job"),
            ("GET", "/api/jobs/999/file", None, 404, "no such backup"),
            ("GET", "/api/scope?channels=", None, 400, "1 .. 8 channels"),
            ("GET", "/api/scope?channels=" + ",".join(["M7.0"] * 9), None, 400, "1 .. 8"),
            ("GET", "/api/scope?channels=K1.0%3D5", None, 400, "register read"),
            ("GET", "/api/scope?channels=NOPE1.0", None, 400, "channel 'NOPE1.0'"),
            ("GET", "/api/scope?channels=M7.0&period_ms=0", None, 400, "period_ms"),
            ("POST", "/api/sim/detach", {"axis": 70}, 400, "0 .. 63"),
            ("POST", "/api/sim/detach", {"axis": 9}, 409, "axis 9"),
        ]
        for method, path, body, status, text in cases:
            with self.subTest(method=method, path=path, body=body):
                raw = body if isinstance(body, bytes) else None
                headers = JSON if raw is not None else None
                got, answer, _ = self.call(method, path, None if raw else body, raw=raw,
                                           headers=headers)
                self.assertEqual(got, status, answer)
                self.assertIn(text, answer if isinstance(answer, str) else json.dumps(answer))

    def test_bad_requests_of_the_transport(self):
        big = b'{"line": "' + b"x" * (9 << 20) + b'"}'
        status, answer, _ = self.call("POST", "/api/send", raw=big, headers=JSON)
        self.assertEqual(status, 413, answer)
        status, answer, _ = self.call("POST", "/api/send", raw=b"{}", headers={"Content-Type": "text/plain"})
        self.assertEqual(status, 415)
        status, answer, _ = self.call("POST", "/api/send", {"line": "K1.0"},
                                      headers={"Origin": "http://evil.example"})
        self.assertEqual((status, answer["error"]), (403, "cross-site request refused"))
        status, _, _ = self.call("GET", "/api/drives", headers={"Host": "evil.example:80"})
        self.assertEqual(status, 403)
        # Stalled clients (half a request; a scope stream never read) hold up no one else.
        host, port = self.server.url[7:-1].split(":")
        stalled = [socket.create_connection((host, int(port))) for _ in range(6)]
        for n, s in enumerate(stalled):
            s.sendall(b"GET /api/drives HTTP/1.1\r\nHost: 127.0.0.1\r\n" if n % 2 else
                      b"GET /api/scope?channels=M7.0&period_ms=1 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        try:
            for _ in range(20):
                self.assertEqual(self.call("GET", "/api/drives", timeout=5)[0], 200)
        finally:
            for s in stalled:
                s.close()

    def test_drives_join_and_leave(self):
        axes = lambda: [d["axis"] for d in self.call("GET", "/api/drives")[1]["drives"]]
        self.assertEqual(axes(), [0, 1, 2, 3, 63])
        self.assertEqual(self.call("POST", "/api/sim/attach", {"axis": 7})[0], 200)
        self.assertIn(7, axes())
        self.assertEqual(self.call("POST", "/api/sim/detach", {"axis": 7})[0], 200)
        self.assertNotIn(7, axes())

    def test_scope_streams_samples_that_follow_a_move(self):
        for line in ["PWR.0=1", "MVE.0=100000,5000,100000"]:
            self.assertTrue(self.call("POST", "/api/send", {"line": line})[1]["acknowledged"])
        conn = http.client.HTTPConnection(self.server.url[7:-1], timeout=10)
        conn.request("GET", "/api/scope?channels=M7.0,K1.0,*W10&period_ms=10")
        r = conn.getresponse()
        self.assertEqual(r.status, 200)
        samples, missed, end = [], 0, time.time() + 20
        while len(samples) < 50 and time.time() < end:
            line = r.fp.readline().decode()
            if line.startswith("data: "):
                batch = json.loads(line[6:])
                samples, missed = samples + batch["samples"], batch["missed"]
        conn.close()
        # Periods are numbered; those without a sample (reads slower than the period, as on a
        # loaded machine) are skipped and counted, never sent twice or out of order.
        numbers = [s[0] for s in samples]
        self.assertEqual(numbers, sorted(set(numbers)))
        self.assertEqual(numbers[-1] + 1 - len(numbers), missed)
        self.assertEqual({s[4] for s in samples}, {100.0})
        self.assertGreater(len({s[2] for s in samples}), 20)  # M7 moves

    def test_backup_checks_and_fifty_clients_poll_while_one_restores(self):
        status, job, _ = self.call("POST", "/api/backup", {})
        self.assertEqual(status, 202)
        done = self.server.job(job)
        self.assertEqual(done["result"]["code"], 0, done)
        status, text, hdrs = self.call("GET", f"/api/jobs/{job['id']}/file")
        self.assertIn("attachment", hdrs["Content-Disposition"])
        with tempfile.NamedTemporaryFile("w", suffix=".txt", delete=False) as f:
            f.write(text.replace("K3.0=0", "K3.0=33", 1))
        try:
            check = subprocess.run([RYN, "check", "--bus", "sim:", f.name], capture_output=True, text=True)
            self.assertEqual(check.returncode, 0, check.stdout + check.stderr)
        finally:
            os.unlink(f.name)
        changed = text.replace("K3.0=0", "K3.0=33", 1)
        self.assertEqual(self.call("POST", "/api/diff", {"text": changed})[1]["differences"],
                         [{"axis": 0, "name": "K3.0", "file": "33", "drive": "0"}])

        failures, answers = [], [0]
        lock, stop = threading.Lock(), threading.Event()

        def poll(n):
            conn = http.client.HTTPConnection(self.server.url[7:-1], timeout=20)
            while not stop.is_set():
                for path in ["/api/drives", "/api/registers?axis=%d&q=POS_KP" % (n % 4)]:
                    try:
                        conn.request("GET", path)
                        r = conn.getresponse()
                        body = json.loads(r.read())
                        ok = r.status == 200 and (body.get("drives") or
                                                  body["registers"][0]["values"][0] is not None)
                    except Exception as e:  # a failed request is what this test looks for
                        ok, body = False, repr(e)
                        conn.close()
                        conn = http.client.HTTPConnection(self.server.url[7:-1], timeout=20)
                    with lock:
                        answers[0] += 1
                        if not ok:
                            failures.append((path, body))
            conn.close()

        threads = [threading.Thread(target=poll, args=(n,)) for n in range(50)]
        for t in threads:
            t.start()
        try:
            status, job, _ = self.call("POST", "/api/restore", {"text": changed})
            self.assertEqual(status, 202)
            self.assertEqual(self.call("POST", "/api/restore", {"text": changed})[0], 409)
            # A diff waits for the restore to end (the parameter port is one at a time), then
            # answers instead of refusing.
            self.assertEqual(self.call("POST", "/api/diff", {"text": changed})[0], 200)
            result = self.server.job(job)["result"]
        finally:
            time.sleep(0.5)
            stop.set()
            for t in threads:
                t.join(60)
        self.assertEqual(failures, [])
        self.assertGreater(answers[0], 100)
        self.assertEqual((result["code"], result["refused"]), (0, 0), result)
        self.assertGreater(result["applied"], 100)
        self.assertEqual(self.call("POST", "/api/send", {"line": "K3.0"})[1]["answer"], "K3.0=33")


class Token(unittest.TestCase):
    def test_token_refused_and_accepted(self):
        with WebServer(RYN, "--token", "s3cret") as s:
            # headers, status
            for headers, status in [({}, 401), ({"Authorization": "Bearer wrong"}, 401),
                                    ({"Authorization": "Bearer s3cret"}, 200),
                                    ({"Cookie": "ryn_token=00"}, 401)]:
                with self.subTest(headers=headers):
                    self.assertEqual(s.request("GET", "/api/drives", headers=headers)[0], status)
            status, page, _ = s.request("GET", "/")
            self.assertEqual(status, 401)
            self.assertIn('name="token"', page)
            conn = http.client.HTTPConnection(s.url[7:-1], timeout=10)
            for token, status in [("bad", 401), ("s3cret", 303)]:
                conn.request("POST", "/login", "token=" + token,
                             {"Content-Type": "application/x-www-form-urlencoded"})
                r = conn.getresponse()
                r.read()
                self.assertEqual(r.status, status)
            cookie = r.getheader("Set-Cookie").split(";")[0]
            self.assertEqual(s.request("GET", "/api/drives", headers={"Cookie": cookie})[0], 200)
            conn.close()
            self.assertEqual(s.stop(), 0, s.stderr)

    def test_other_hosts_need_a_token(self):
        r = subprocess.run([RYN, "web", "--listen", "0.0.0.0:0"], capture_output=True, text=True,
                           timeout=30)
        self.assertEqual(r.returncode, 2)
        self.assertIn("needs --token", r.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
