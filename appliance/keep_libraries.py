#!/usr/bin/env python3
"""keep_libraries.py ROOT: removes from the system in ROOT the libraries that nothing in it needs
any more, and fails when something needs a library that is not there. What the loader's own folder
does not hold is taken for a plugin or a program, and stays."""

import pathlib
import re
import subprocess
import sys

OPENED_BY_NAME = re.compile(r"libnss_(files|compat)\.")  # by the C library, nsswitch.conf(5)


def elf_files(root):
    for path in (root / "usr").rglob("*"):
        if path.is_file() and not path.is_symlink() and path.suffix != ".ko":
            with path.open("rb") as file:
                if file.read(4) == b"\x7fELF":
                    yield path


def dynamic_entries(path, kind):
    """Names that its dynamic section gives: NEEDED (others) or SONAME (its own)."""
    text = subprocess.run(["readelf", "--dynamic", "--wide", path], capture_output=True, text=True,
                          check=True).stdout
    return re.findall(rf"\({kind}\).*\[(.*)\]", text)


def main():
    root = pathlib.Path(sys.argv[1])
    folder = root / "usr/lib/i386-linux-gnu"
    needed = {path: dynamic_entries(path, "NEEDED") for path in elf_files(root)}
    owner = {name: path for path in needed for name in dynamic_entries(path, "SONAME")}
    kept = {path for path in needed if path.parent != folder or OPENED_BY_NAME.match(path.name)}
    waiting = list(kept)
    while waiting:
        path = waiting.pop()
        for name in needed[path]:
            if name not in owner:
                sys.exit(f"keep_libraries.py: {path}: needs {name}, which is not there")
            if owner[name] not in kept:
                kept.add(owner[name])
                waiting.append(owner[name])
    for path in needed.keys() - kept:
        path.unlink()


if __name__ == "__main__":
    main()
