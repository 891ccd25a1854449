"""Odd names, broken arguments and broken pictures for the two helpers, on small image files in a
folder of its own."""

import argparse
import os
import pathlib
import random
import re
import subprocess
import tempfile
import threading

OLD_BYTES = 70 * 512
BIG = 48 << 20  # enough for FAT32


class Helpers:
    """The two programs, a good picture, and what is drawn by the seed: the old content of image
    files for `driver`, and what is broken."""

    def __init__(self, arguments):
        self._driver, self._format = arguments.driver.resolve(), arguments.format.resolve()
        self.picture = arguments.picture.resolve()
        self.chance = random.Random(arguments.seed)
        self.old = self.chance.randbytes(OLD_BYTES)

    def run_driver(self, *arguments):
        """The exit code and all output; an error is the last line of it."""
        code, output, lines = self._run(self._driver, arguments)
        assert not code or lines[-1].startswith(b"error: "), output
        return code, output

    def erase(self, device):
        """Overwrites with the letter A; gives the same as run_driver()."""
        return self.run_driver(b"device=" + os.fsencode(device), "mode=write", "pattern=A",
                               "sectorsPerTime=3")

    def format(self, device, picture):
        """The exit code."""
        return self._run(self._format, (device, picture))[0]

    def _run(self, program, arguments):
        """All output must be lines that a person can read."""
        child = subprocess.run([program, *arguments], capture_output=True, timeout=60, check=False)
        output = child.stdout + child.stderr
        assert child.returncode in (0, 1, 2), child
        assert not re.search(rb"[\0-\x09\x0b-\x1f\x7f]", output), output
        assert b"Sanitizer" not in output, output
        return child.returncode, output, child.stdout.splitlines()

    def broken(self, text):
        """The bytes with a few changed, left out or put in."""
        result = bytearray(text)
        for _ in range(self.chance.choice([1, 1, 3, 40])):
            at = self.chance.randrange(len(result) + 1)
            piece = self.chance.choice([b"", b"=", b"\n", b"\xff", b"%s%n", b"9" * 30, b"x" * 5000,
                                        bytes([self.chance.randrange(1, 256)])])
            result[at:at + self.chance.randrange(4)] = piece
        return bytes(result)

    def broken_argument(self, text):
        """The same, as a program can be given it."""
        return self.broken(text).replace(b"\0", b"")


def is_erased(path):
    return pathlib.Path(path).read_bytes() == b"A" * OLD_BYTES


def try_names(helpers):
    """Names, links, and what only looks like a drive."""
    deep = "/".join(["d" * 199] * 20)  # 4,000 characters
    os.makedirs(deep)
    for name in ["two  words", "quote\"'`$(x)", "new\nline", "%1%2\\x00", "ü\udcff",
                 deep + "/drive"]:
        pathlib.Path(name).write_bytes(helpers.old)
        code, output = helpers.erase(name)
        assert code == 0 and is_erased(name), (name, output)
        assert helpers.erase(name + "?")[0] == 1, name
        os.truncate(name, BIG)
        assert helpers.format(name + "-emulate", helpers.picture) == 0, name
        assert helpers.format(name, f"{helpers.picture}?") == 1, name
    pathlib.Path("drive").write_bytes(helpers.old)
    os.symlink("drive", "link")
    os.symlink(".", "folder")
    os.mkfifo("fifo")
    assert helpers.erase("link")[0] == 0 and is_erased("drive")
    for name in ["folder", "fifo", "/dev/full", "x" * 5000]:
        assert helpers.erase(name)[0] == 1 and helpers.format(name, helpers.picture) == 1, name


def try_arguments(helpers, rounds):
    """Whatever is refused as wrong was not touched."""
    chance, picture = helpers.chance, helpers.picture.read_bytes()
    pathlib.Path("big").touch()
    os.truncate("big", BIG)
    for _ in range(rounds):
        pathlib.Path("drive").write_bytes(helpers.old)
        arguments = [b"device=drive", b"mode=write", rb"pattern=\x41", b"sectorsPerTime=2"]
        for _ in range(chance.randrange(1, 3)):
            at = chance.randrange(len(arguments))
            arguments[at:at + chance.randrange(1, 3)] = [helpers.broken_argument(arguments[at])]
        code, _ = helpers.run_driver(*arguments)
        assert code != 2 or pathlib.Path("drive").read_bytes() == helpers.old, arguments
        pathlib.Path("broken.png").write_bytes(helpers.broken(picture))
        device = chance.choice([b"big-emulate", helpers.broken_argument(b"big-emulate")])
        helpers.format(device, "broken.png")
    with open("big", "rb") as file:
        assert not any(file.read())


def swap(stop):
    while not stop.is_set():
        for target in ("one", "two"):
            os.symlink(target, "new")
            os.replace("new", "swapped")


def try_swapped_name(helpers, rounds):
    """A name that means another file from one moment to the next: one of the two is erased as a
    whole, never a part of each."""
    pathlib.Path("swapped").touch()
    stop = threading.Event()
    swapper = threading.Thread(target=swap, args=[stop])
    swapper.start()
    try:
        for _ in range(rounds):
            for name in ("one", "two"):
                pathlib.Path(name).write_bytes(helpers.old)
            code, _ = helpers.erase("swapped")
            contents = {pathlib.Path(name).read_bytes() for name in ("one", "two")}
            assert code != 0 or contents == {helpers.old, b"A" * OLD_BYTES}, "both, or none"
    finally:
        stop.set()
        swapper.join()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("driver", "format", "picture"):
        parser.add_argument(name, type=pathlib.Path)
    parser.add_argument("seed", type=int, nargs="?", default=1, help="default: 1")
    parser.add_argument("rounds", type=int, nargs="?", default=30, help="default: 30")
    arguments = parser.parse_args()
    print("seed", arguments.seed, flush=True)
    helpers = Helpers(arguments)
    with tempfile.TemporaryDirectory(prefix="hostile_input-") as folder:
        os.chdir(folder)
        try_names(helpers)
        try_arguments(helpers, arguments.rounds)
        try_swapped_name(helpers, arguments.rounds)


if __name__ == "__main__":
    main()
