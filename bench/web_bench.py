#!/usr/bin/env python3
"""Speed of `ryn web` on the sim: bus, each figure beside its baseline from the same run.

1. Scope: 8 channels at 100 samples per second each for a minute (--seconds) through the
   server-sent event stream; counts the samples, the periods without a sample and the longest
   time between two samples. Baseline: one channel for a tenth of the time.
2. First render: the page loaded in headless Chromium (--loads times); the browser's navigation
   and paint timings. Baseline: a small JSON answer of the same server loaded the same way.

Run: /usr/bin/python3 bench/web_bench.py build/release/tools/ryn/ryn [--seconds 60] [--loads 20]
"""
import argparse
import http.client
import json
import os
import statistics
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "tests", "web"))
from webserver import WebServer  # noqa: E402


def scope(server, channels, seconds, period_ms=10):
    conn = http.client.HTTPConnection(server.url[7:-1], timeout=10)
    conn.request("GET", f"/api/scope?period_ms={period_ms}&channels={','.join(channels)}")
    r = conn.getresponse()
    assert r.status == 200, r.read()
    samples, missed, end = [], 0, time.time() + seconds
    while time.time() < end:
        line = r.fp.readline().decode()
        if line.startswith("data: "):
            batch = json.loads(line[6:])
            samples += batch["samples"]
            missed = batch["missed"]
    conn.close()
    times = [s[1] for s in samples]
    gaps = [b - a for a, b in zip(times, times[1:])]
    numbers = [s[0] for s in samples]
    holes = sum(b - a - 1 for a, b in zip(numbers, numbers[1:]))
    nulls = sum(v is None for s in samples for v in s[2:])
    span = (times[-1] - times[0]) / 1000
    return {"channels": len(channels), "samples": len(samples),
            "per_second_each": round((len(samples) - 1) / span, 2),
            "periods_without_sample": holes, "missed_reported": missed, "null_values": nulls,
            "longest_interval_ms": round(max(gaps), 2),
            "p99_interval_ms": round(sorted(gaps)[int(len(gaps) * 0.99)], 2)}


def render(server, loads):
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for arg in ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"]:
        options.add_argument(arg)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    timing = """const n = performance.getEntriesByType('navigation')[0];
        const p = performance.getEntriesByName('first-contentful-paint')[0];
        return [n.responseEnd, n.domContentLoadedEventEnd, n.loadEventEnd, p ? p.startTime : null];"""
    try:
        out = {}
        for name, path in [("page", ""), ("baseline /api/drives", "api/drives")]:
            rows = []
            for _ in range(loads):
                driver.get("about:blank")
                driver.get(server.url + path)
                for _ in range(100):
                    t = driver.execute_script(timing)
                    if t[2] > 0 and (path or t[3] is not None):
                        break
                    time.sleep(0.02)
                rows.append(t)
            col = lambda i: [r[i] for r in rows if r[i] is not None]
            out[name] = {k: {"median_ms": round(statistics.median(col(i)), 1),
                             "max_ms": round(max(col(i)), 1)}
                         for i, k in enumerate(["response_end", "dom_content_loaded",
                                                "load_end", "first_contentful_paint"]) if col(i)}
        return out
    finally:
        driver.quit()


def main():
    a = argparse.ArgumentParser()
    a.add_argument("ryn")
    a.add_argument("--seconds", type=float, default=60)
    a.add_argument("--loads", type=int, default=20)
    o = a.parse_args()
    with WebServer(o.ryn) as server:
        eight = ["M7.0", "M7.1", "M7.2", "M7.3", "K1.0", "K2.0", "K1.1", "*W10"]
        for line in ["PWR.0=1", "MVE.0=100000000,20000,100000"]:
            server.request("POST", "/api/send", {"line": line})
        result = {"scope 8 channels": scope(server, eight, o.seconds),
                  "scope baseline 1 channel": scope(server, ["M7.0"], max(5, o.seconds / 10)),
                  "first render": render(server, o.loads)}
    print(json.dumps(result, indent=2))


if __name__ == "__main__":
    main()
