#!/usr/bin/python3
"""Measures the Python package against the C tool on the same lines, in the same run.

Translation: the benchmark corpus (bench/data/corpus.txt) repeated to 100,000 lines, translated
by `ryn translate -f` (records and the text read back) and `ryn translate --records -f` (records
only), and by the Python package in batch (Translator.to_records) and line by line
(Translator.to_record, then to_text for the way back). Each figure is the best of a few runs.

Memory: 10,000 create/destroy cycles of translators and buses, closed by `with` blocks or left
to the garbage collector, with the process's resident memory before and after.

Run after building the release preset:
    /usr/bin/python3 bench/python_translate.py [--build build/release] [--lines 100000]
"""

import argparse
import gc
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)


def rss_kib() -> int:
    with open("/proc/self/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def best(function, repeat: int) -> float:
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        function()
        times.append(time.perf_counter() - start)
    return min(times)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "release"))
    parser.add_argument("--lines", type=int, default=100000)
    parser.add_argument("--cycles", type=int, default=10000)
    parser.add_argument("--repeat", type=int, default=3)
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    os.environ.setdefault("RYN_LIBRARY_PATH", os.pathsep.join(
        os.path.join(build, "src", lib) for lib in ("sup", "vok", "oxb", "tra")))
    sys.path.insert(0, os.path.join(ROOT, "python"))
    import ryn

    with open(os.path.join(HERE, "data", "corpus.txt")) as f:
        corpus = [line.rstrip("\n") for line in f if line.strip() and not line.startswith("#")]
    lines = (corpus * (args.lines // len(corpus) + 1))[:args.lines]
    tool = os.path.join(build, "tools", "ryn", "ryn")
    with tempfile.NamedTemporaryFile("w", suffix=".txt", delete=False) as f:
        f.write("\n".join(lines) + "\n")
        path = f.name
    try:
        def run_tool(*options: str) -> None:
            subprocess.run([tool, "translate", *options, "-f", path], check=True,
                           stdout=subprocess.DEVNULL)

        c_both = best(lambda: run_tool(), args.repeat)
        c_records = best(lambda: run_tool("--records"), args.repeat)
    finally:
        os.unlink(path)

    with ryn.Translator.offline("ORX-D32", "3.12B") as tra:
        tra.to_records(lines[:1000])  # lookup tables built before the clock runs
        py_batch = best(lambda: tra.to_records(lines), args.repeat)

        def one_by_one() -> None:
            for line in lines:
                tra.to_record(line)

        def both_ways() -> None:
            to_text = tra.to_text
            for record in tra.to_records(lines):
                to_text(record)

        py_single = best(one_by_one, args.repeat)
        py_both = best(both_ways, args.repeat)

    n = len(lines)
    print("translation of %d lines (best of %d runs)" % (n, args.repeat))
    rows = [
        ("C tool, records only (ryn translate --records -f)", c_records, None),
        ("Python batch, records (Translator.to_records)", py_batch, c_records),
        ("Python line by line, records (Translator.to_record)", py_single, c_records),
        ("C tool, records and text back (ryn translate -f)", c_both, None),
        ("Python batch, records and text back (to_records + to_text)", py_both, c_both),
    ]
    for name, seconds, baseline in rows:
        ratio = "" if baseline is None else "  %.2fx the C tool" % (seconds / baseline)
        print("  %-62s %7.3f s  %6.2f us/line%s" % (name, seconds, seconds * 1e6 / n, ratio))

    print("memory over %d create/destroy cycles (resident set, KiB)" % args.cycles)

    def offline_closed() -> None:
        with ryn.Translator.offline() as t:
            t.to_record("K1.0=1")

    def offline_dropped() -> None:  # destroyed by the garbage collector's finalizer
        ryn.Translator.offline().to_record("K1.0=1")

    def bus_and_translator() -> None:
        with ryn.Bus("sim:axes=0") as bus, ryn.Translator.on(bus) as t:
            t.send("K1.0=1")
            t.receive(1.0)

    for name, cycle in (("offline translator, with block", offline_closed),
                        ("offline translator, left to the collector", offline_dropped),
                        ("sim: bus and bound translator, send and receive", bus_and_translator)):
        for _ in range(200):  # warm-up: allocator pools and caches reach their size
            cycle()
        gc.collect()
        before = rss_kib()
        start = time.perf_counter()
        for _ in range(args.cycles):
            cycle()
        gc.collect()
        after = rss_kib()
        print("  %-50s before %7d  after %7d  (%+d)  %.1f s" % (
            name, before, after, after - before, time.perf_counter() - start))


if __name__ == "__main__":
    main()
