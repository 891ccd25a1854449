#!/usr/bin/env python3
"""hostile_input.py DRIVER FORMAT PICTURE [SEED [ROUNDS]]: odd names, broken arguments and
broken pictures for the two helpers, on small image files in a folder of its own."""
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import threading

DRIVER, FORMAT, PICTURE = map(os.path.abspath, sys.argv[1:4])
seed = int(sys.argv[4]) if len(sys.argv) > 4 else random.randrange(1 << 30)
rounds = int(sys.argv[5]) if len(sys.argv) > 5 else 30
print("seed", seed)
chance = random.Random(seed)
folder = tempfile.TemporaryDirectory(prefix="hostile_input-")
os.chdir(folder.name)
OLD = os.urandom(70 * 512)
BIG = 48 << 20  # enough for FAT32


def run(arguments: list) -> tuple[int, bytes]:
    """The exit code and all output, which must be lines a person can read."""
    child = subprocess.run(arguments, capture_output=True, timeout=60)
    output = child.stdout + child.stderr
    assert child.returncode in (0, 1, 2), (arguments, child)
    assert not re.search(rb"[\0-\x09\x0b-\x1f\x7f]", output) and b"Sanitizer" not in output, output
    if arguments[0] == DRIVER and child.returncode:
        assert child.stdout.splitlines()[-1].startswith(b"error: "), output
    return child.returncode, output


def drive(device, mode="write") -> tuple[int, bytes]:
    return run([DRIVER, b"device=" + os.fsencode(device), "mode=" + mode, "pattern=A",
                "sectorsPerTime=3"])


def broken(text: bytes) -> bytes:
    """The text with a few bytes changed, left out or put in."""
    result = bytearray(text)
    for _ in range(chance.choice([1, 1, 3, 40])):
        at = chance.randrange(len(result) + 1)
        piece = chance.choice([b"", b"=", b"\n", b"\xff", b"%s%n", b"9" * 30, b"x" * 5000,
                               bytes([chance.randrange(1, 256)])])
        result[at:at + chance.randrange(4)] = piece
    return bytes(result)


# Names, links, and what only looks like a drive.
deep = "/".join(["d" * 199] * 20)  # 4,000 characters
os.makedirs(deep)
for name in ["two  words", "quote\"'`$(x)", "new\nline", "%1%2\\x00", "ü\udcff", deep + "/drive"]:
    pathlib.Path(name).write_bytes(OLD)
    code, output = drive(name)
    assert code == 0 and pathlib.Path(name).read_bytes() == b"A" * len(OLD), (name, output)
    assert drive(name + "?")[0] == 1, name
    with open(name, "r+b") as file:
        file.truncate(BIG)
    assert run([FORMAT, name + "-emulate", PICTURE])[0] == 0, name
    assert run([FORMAT, name, PICTURE + "?"])[0] == 1, name
pathlib.Path("drive").write_bytes(OLD)
os.symlink("drive", "link")
os.symlink(".", "folder")
os.mkfifo("fifo")
assert drive("link")[0] == 0 and pathlib.Path("drive").read_bytes() == b"A" * len(OLD)
for name in ["folder", "fifo", "/dev/full", "x" * 5000]:
    assert drive(name)[0] == 1 and run([FORMAT, name, PICTURE])[0] == 1, name

# Arguments: whatever is refused as wrong was not touched.
pathlib.Path("big").touch()
os.truncate("big", BIG)
for _ in range(rounds):
    pathlib.Path("drive").write_bytes(OLD)
    arguments = [b"device=drive", b"mode=write", rb"pattern=\x41", b"sectorsPerTime=2"]
    for _ in range(chance.randrange(1, 3)):
        at = chance.randrange(len(arguments))
        arguments[at:at + chance.randrange(1, 3)] = [broken(arguments[at])]
    code, _ = run([DRIVER, *[argument.replace(b"\0", b"") for argument in arguments]])
    assert code != 2 or pathlib.Path("drive").read_bytes() == OLD, arguments
    pathlib.Path("broken.png").write_bytes(broken(pathlib.Path(PICTURE).read_bytes()))
    run([FORMAT, chance.choice([b"big-emulate", broken(b"big-emulate").replace(b"\0", b"")]),
         "broken.png"])
with open("big", "rb") as file:
    assert not any(file.read())

# A name that means another file from one moment to the next: one of the two is erased as a
# whole, never a part of each.
stop = threading.Event()


def swap() -> None:
    while not stop.is_set():
        for target in ("one", "two"):
            os.symlink(target, "new")
            os.replace("new", "swapped")


pathlib.Path("swapped").touch()
swapper = threading.Thread(target=swap)
swapper.start()
for _ in range(rounds):
    for name in ("one", "two"):
        pathlib.Path(name).write_bytes(OLD)
    code, _ = drive("swapped")
    contents = {pathlib.Path(name).read_bytes() for name in ("one", "two")}
    if code == 0 and contents != {OLD, b"A" * len(OLD)}:
        stop.set()
        raise AssertionError("both were changed, or none")
stop.set()
swapper.join()
