"""Talks to the simulated demo bus from Python: translation, commands, a backup and a restore."""
import ryn

# Offline: text to record and back, for an ORX-D32 at version 3.12B.
with ryn.Translator.offline("ORX-D32", "3.12B") as offline:
    record = offline.to_record("MVE.1=1000L,50.0F,200.0D")
    print("command", record.command, "with", record.slots, "slots for axes", hex(record.axes))
    print("read back as", offline.to_text(record))
    try:
        offline.to_record("K1.0=2000000")
    except ryn.Error as e:
        print("refused:", e.code, e.message, "at", e.trace[0].function)

# Online: the sim: bus of five simulated drives.
with ryn.Bus("sim:") as bus, ryn.Translator.on(bus) as drives:
    print("drives at axes", bus.present_axes, "- axis 1 is", bus.drive_info(1).product_name)
    drives.send("K1.0=1234", user=7)
    print(drives.receive(timeout=1.0))
    drives.send("K1.0")
    print("K1.0 reads", drives.receive(timeout=1.0).text)

    saved = ryn.backup(bus, "axis0.txt", axes=[0], types=["K"])
    print("backup:", saved.values, "values,", saved.read_only, "read-only as comments")
    drives.send("K1.0=99")
    drives.receive(timeout=1.0)
    restored = ryn.restore(bus, "axis0.txt", axes=[0], types=["K"])
    print("restore:", restored.sent, "sent,", restored.refused, "refused,", restored.skipped,
          "skipped")
    drives.send("K1.0")
    print("K1.0 reads", drives.receive(timeout=1.0).text)
