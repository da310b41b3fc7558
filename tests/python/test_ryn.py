"""Tests of the ryn Python package against the build tree's libraries (run by CTest)."""

import gc
import io
import os
import re
import shutil
import subprocess
import sys
import threading
import weakref

import pytest

import ryn

SOURCE = os.environ.get("RYN_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))


@pytest.fixture
def bus():
    with ryn.Bus("sim:") as b:
        yield b


@pytest.fixture
def drives(bus):
    with ryn.Translator.on(bus) as t:
        yield t


def read(drives, register):
    assert drives.send(register)
    return drives.receive(timeout=2.0).text


@pytest.mark.parametrize("line, command, slots, axes, back", [
    ("K12.0=2", 123, 2, 0x1, "K12.0=2"),
    ("MVE.1=1000L,50.0F,200.0D", 160, 3, 0x2, "MVE.1=1000L,50.0F,200.0D"),
    ("PWR.(0,1)=1", 124, 1, 0x3, "PWR.(0,1)=1"),
    ("K1.0", -1, 1, 0x1, None),  # a register read, written back in the library's own form
    ("# a comment", None, None, None, None),
])
def test_translation_both_ways(line, command, slots, axes, back):
    with ryn.Translator.offline("ORX-D32", "3.12B") as tra:
        record = tra.to_record(line)
        if command is None:
            assert record is None
            return
        assert (record.command, record.slots, record.axes) == (command, slots, axes)
        assert len(record.data) == 8 + 16 * slots
        if back is not None:
            assert tra.to_text(record) == back
            assert tra.to_record(tra.to_text(record)) == record
        assert tra.to_records([line, "", line]) == [record, None, record]


@pytest.mark.parametrize("make, cls, code, origin", [
    (lambda: ryn.Translator.offline().to_record("K1.0=2000000"), ryn.TranslatorError, -562,
     "_tra_check_everything"),
    (lambda: ryn.Translator.offline().to_record("M1.0=3"), ryn.ReadOnlyError, -567, None),
    (lambda: ryn.Translator.offline("ORX-D32", "9.99A"), ryn.ProductError, -518, None),
    (lambda: ryn.Translator.offline().to_records(["K1.0=1", "K1.0=?"]), ryn.TranslatorError,
     None, None),
    (lambda: ryn.Bus("sym:"), ryn.BusError, -207, None),
    (lambda: ryn.Bus("sim:version=3.99A"), ryn.BusError, -208, None),
    (lambda: ryn.Translator.offline().send("K1.0=1"), ryn.NoDriveError, -568, None),
    (lambda: ryn.Translator.offline().receive(0), ryn.Timeout, -525, None),
])
def test_errors_carry_code_message_and_trace(make, cls, code, origin):
    with pytest.raises(cls) as caught:
        make()
    e = caught.value
    assert isinstance(e, ryn.Error) and e.message and e.trace
    assert e.trace[0].code == e.code and all(f.code == 0 for f in e.trace[1:])
    if code is not None:
        assert e.code == code
    if origin is not None:
        assert e.trace[0].function == origin
    assert str(e.code) in str(e)


def test_error_names_its_line_and_the_bus_its_option():
    with pytest.raises(ryn.Error) as caught:
        ryn.Translator.offline().to_records(["K1.0=1", "# fine", "K1.0=2000000"])
    assert caught.value.line == 3 and caught.value.text == "K1.0=2000000"
    with pytest.raises(ryn.BusError, match="3.99A"):
        ryn.Bus("sim:version=3.99A")


@pytest.mark.parametrize("line, acknowledged, status, is_read, text", [
    ("K1.0=1234", True, False, False, "K1.0=1234"),
    ("K1.0", True, False, True, "K1.0=1000"),
    ("X1.0/=0", False, True, False, "X1.0/=0"),  # the drive refuses a division by zero
])
def test_send_and_receive_on_sim(drives, line, acknowledged, status, is_read, text):
    assert drives.send(line, user=42)
    assert drives.receive(timeout=2.0) == ryn.Answer(text, acknowledged, status, is_read, 42)
    assert not drives.send("; nothing to send")


def test_bus_reports_its_drives(bus, drives):
    assert bus.present_axes == [0, 1, 2, 3, 63]
    info = bus.drive_info(1)
    assert (info.product_name, info.version, info.ext_name) == ("ORX-D32", "3.12B", "IOX-8")
    assert drives.drive(3) == "ORX-D32 3.20A + ENC-2 2.00A" and drives.drive(5) is None
    with pytest.raises(ryn.Timeout):
        drives.receive(timeout=0.05)


def test_stream_raises_on_a_refused_and_on_a_bad_line(drives):
    with pytest.raises(ryn.Refused) as caught:
        drives.send_stream(["# block", "K2.0=10", "X1.0/=0", "K12.0=1"], axes=[0])
    assert (caught.value.line, caught.value.text) == (3, "X1.0/=0")
    assert caught.value.report.sent == 3 and caught.value.report.acknowledged == 2
    with pytest.raises(ryn.TranslatorError) as caught:
        drives.send_stream(["K2.0=11", "K2.0=2000000000000"], axes=[0])
    assert caught.value.line == 2
    assert read(drives, "K2.0") == "K2.0=11"  # the lines before the bad one stay applied


def test_backup_and_restore_round_trip(bus, drives, tmp_path):
    path = tmp_path / "axes.txt"
    seen = []
    saved = ryn.backup(bus, path, axes=[0, 1], types=["K", "X"], progress=seen.append,
                       descriptions=True, group_classes=True)
    text = path.read_text()
    assert saved.read_only > 0 and text.count("# read-only: ") == saved.read_only
    assert seen[-1] == 1.0 and seen == sorted(seen)
    for line in ("K1.0=77", "K1.1=78", "X3.0=5"):
        drives.send(line)
        assert drives.receive(timeout=2.0).acknowledged
    report = ryn.restore(bus, path, axes=[0, 1], types=["K", "X"])
    assert report.refused == 0 and report.sent == saved.values
    assert report.read_only == saved.read_only
    assert [read(drives, r) for r in ("K1.0", "K1.1", "X3.0")] == ["K1.0=1000", "K1.1=1000",
                                                                      "X3.0=0"]
    # An assignment to a read-only element is left out, not a failure.
    assert ryn.restore(bus, io.StringIO("M1.0=3\nK1.0=5\n"), axes=[0]).read_only == 1


@pytest.mark.parametrize("layout", [
    {}, {"vector_form": True}, {"use_aliases": True}, {"skip_defaults": True},
    {"descriptions": True, "group_classes": True, "verbose": True, "reserved_comment": True},
    {"no_comments": True, "full_precision": True}, {"tab": True, "drive_only": True},
])
def test_every_restorable_layout_restores_what_was_backed_up(bus, drives, layout):
    for line in ("K1.1=78", "KF1.1=2.5F", "X5.1=9", "*W10=300"):
        drives.send(line)
        assert drives.receive(timeout=2.0).acknowledged
    saved = io.StringIO()
    ryn.backup(bus, saved, axes=[1, 63], **layout)
    bus.reset()
    assert ryn.restore(bus, io.StringIO(saved.getvalue()), axes=[1, 63]).refused == 0
    again = io.StringIO()
    ryn.backup(bus, again, axes=[1, 63], **layout)
    dated = re.compile(r"^# Date:.*$", re.M)
    assert dated.sub("", again.getvalue()) == dated.sub("", saved.getvalue())


@pytest.mark.parametrize("content, cls, line", [
    ("# header\nK1.0=5\nCLX.0\nK1.0=6\n", ryn.TranslatorError, 3),  # not an assignment: -522
    ("K1.0=5\n\nK1.0=2000000\n", ryn.TranslatorError, 3),
])
def test_restore_stops_at_a_bad_line_with_its_number(bus, drives, content, cls, line):
    with pytest.raises(cls) as caught:
        ryn.restore(bus, io.StringIO(content), axes=[0])
    assert caught.value.line == line
    assert read(drives, "K1.0") == "K1.0=5"


def test_restore_refused_by_the_drive_raises_with_the_file_line(bus):
    # Without the dictionary checks the out-of-range value reaches the drive, which refuses it.
    with pytest.raises(ryn.Refused) as caught:
        ryn.restore(bus, io.StringIO("# one\nK1.0=5\nK1.0=2000000\nK1.0=6\n"), axes=[0],
                    flags=ryn.NO_CHECK)
    assert (caught.value.line, caught.value.text) == (3, "K1.0=2000000")
    assert caught.value.report.sent == 3


class Stop(Exception):
    pass


def test_a_callback_that_raises_reaches_the_caller(bus, drives, tmp_path):
    def progress(fraction):
        raise Stop(fraction)

    with pytest.raises(Stop):
        ryn.backup(bus, tmp_path / "b.txt", axes=[0], types=["K"], progress=progress)
    assert not (tmp_path / "b.txt").exists()  # nothing half-written

    def lines():
        yield "K2.0=12"
        raise Stop("source failed")

    with pytest.raises(Stop, match="source failed"):
        drives.send_stream(lines(), axes=[0])
    with pytest.raises(Stop):
        ryn.restore(bus, io.StringIO("K1.0=5\nK1.0=6\n"), axes=[0], progress=progress)
    assert read(drives, "K2.0") == "K2.0=12"  # the translator is still fine afterwards


def test_two_threads_each_with_its_own_translator():
    results = {}
    shared = ryn.Translator.offline()  # also shared by both: each call keeps its own buffers
    expected = {n: shared.to_record(n) for n in ("K1.0=5", "MVE.1=1L,2.0F,3.0D")}

    def work(name, line, own):
        with ryn.Translator.offline() as tra:
            failures, wrong = set(), 0
            for _ in range(300):
                try:
                    tra.to_record(line)
                except ryn.Error as e:
                    failures.add((e.code, e.trace[0].code))
                wrong += shared.to_record(own) != expected[own]
            results[name] = (failures, wrong)

    threads = [threading.Thread(target=work, args=("good", "K1.0=5", "K1.0=5")),
               threading.Thread(target=work, args=("bad", "K1.0=2000000", "MVE.1=1L,2.0F,3.0D"))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    shared.close()
    assert results == {"good": (set(), 0), "bad": ({(-562, -562)}, 0)}


@pytest.mark.parametrize("make", [
    lambda: ryn.Translator.offline(),
    lambda: ryn.Bus("sim:axes=0"),
    lambda: ryn.dictionary.open("ORX-D32"),
])
def test_objects_are_freed_without_the_cycle_collector(make):
    gc.disable()
    try:
        obj = make()
        ref = weakref.ref(obj)
        del obj
        assert ref() is None  # reference counting alone: no cycle keeps it
    finally:
        gc.enable()
    closed = make()
    closed.close()
    closed.close()


def test_dictionary_browsing():
    d32 = next(p for p in ryn.dictionary.products() if p.name == "ORX-D32")
    assert d32.versions == ("3.10A", "3.12B", "3.20A") and d32.default_version == "3.12B"
    assert "IOX-8" in [c.name for c in ryn.dictionary.cards()]
    with ryn.dictionary.open("ORX-D32", "3.12B") as d:
        k1 = d.register("K1")
        assert (k1.alias, k1.elements[0].minimum, k1.elements[0].maximum) == ("POS_KP", 0,
                                                                              1000000)
        mode = d.register("MODE")
        assert ("VELOCITY", 2) in [(e.name, e.value) for e in mode.elements[0].enumeration]
        assert [p.name for p in d.command("MVE").params] == ["target", "speed", "acceleration"]
        assert any(r.name == "K12" for r in d.registers("K"))
        assert any(c.name == "MVE" for c in d.commands())


def test_flags_shape_the_text_read_back():
    with ryn.Translator.offline(flags=ryn.USE_ALIASES) as tra:
        record = tra.to_record("K1.0=5")
        assert tra.to_text(record) == "POS_KP.0=5"
        tra.flags = 0
        assert (tra.flags, tra.to_text(record)) == (0, "K1.0=5")


def test_axis63_takes_a_configuration_of_its_own():
    with ryn.Translator.offline(axis63=("ORX-M51", "2.01A")) as tra:
        assert tra.drive(63) == "ORX-M51 2.01A" and tra.to_record("*W10=200").axes == 1 << 63
    with pytest.raises(ryn.TranslatorError):
        ryn.Translator.offline().to_record("*W10=200")  # an ORX-D32 has no W registers


def test_missing_libraries_are_named_on_import(tmp_path):
    env = dict(os.environ, RYN_LIBRARY_PATH=str(tmp_path), PYTHONPATH=os.path.join(SOURCE,
                                                                                  "python"))
    run = subprocess.run([sys.executable, "-c", "import ctypes.util, ryn; "
                          "print(ctypes.util.find_library('ryn_sup'))"],
                         env=env, capture_output=True, text=True, timeout=60)
    if run.returncode == 0:
        pytest.skip("the ryn libraries are installed on this system")
    assert "ImportError" in run.stderr and "RYN_LIBRARY_PATH" in run.stderr


def test_installs_into_a_virtual_environment_without_an_index(tmp_path):
    shutil.copytree(os.path.join(SOURCE, "python"), tmp_path / "python",
                    ignore=shutil.ignore_patterns("build", "*.egg-info", "__pycache__"))
    venv = tmp_path / "venv"
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", str(venv)],
                   check=True, timeout=120)
    env = {k: v for k, v in os.environ.items() if not k.startswith("PIP_") and k != "PYTHONPATH"}
    subprocess.run([str(venv / "bin" / "pip"), "install", "-q", "--no-index",
                    "--no-build-isolation", str(tmp_path / "python")],
                   check=True, env=env, timeout=300, cwd=tmp_path)
    run = subprocess.run([str(venv / "bin" / "python"), "-c",
                          "import ryn; print(ryn.__file__, ryn.library_version())"],
                         env=env, capture_output=True, text=True, timeout=60, cwd=tmp_path)
    assert run.returncode == 0, run.stderr
    assert str(venv) in run.stdout and run.stdout.split()[-1] == ryn.library_version()


def test_documented_example_prints_what_the_documentation_shows(tmp_path):
    with open(os.path.join(SOURCE, "docs", "python.md")) as f:
        shown = re.search(r"It prints:\n\n```\n(.*?)```", f.read(), re.S).group(1)
    run = subprocess.run([sys.executable, os.path.join(SOURCE, "examples", "online.py")],
                         cwd=tmp_path, capture_output=True, text=True, timeout=60)
    assert run.returncode == 0, run.stderr
    assert run.stdout == shown
