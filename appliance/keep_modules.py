#!/usr/bin/env python3
"""keep_modules.py FOLDER LIST: removes from a kernel's module folder what LIST does not ask
for. A kept module keeps all that it depends on; a line of LIST that names nothing is an error,
because the kernel may have renamed it."""

import pathlib
import sys


def read_dependencies(folder):
    """The modules that each module needs, as depmod(8) found them."""
    lines = (folder / "modules.dep").read_text().splitlines()
    return {name: needed.split() for name, _, needed in (line.partition(":") for line in lines)}


def read_list(path):
    """Asked for, and taken out again."""
    lines = [line.strip() for line in path.read_text().splitlines()]
    lines = [line for line in lines if line and not line.startswith("#")]
    return ([line for line in lines if not line.startswith("-")],
            [line[1:] for line in lines if line.startswith("-")])


def named_by(line, modules):
    found = {name for name in modules
             if name == f"kernel/{line}" or name.startswith(f"kernel/{line}/")}
    if not found:
        sys.exit(f"keep_modules.py: {line}: the kernel has no such module or folder")
    return found


def main():
    folder, list_path = map(pathlib.Path, sys.argv[1:])
    dependencies = read_dependencies(folder)
    asked, taken_out = read_list(list_path)
    kept = set().union(*(named_by(line, dependencies) for line in asked))
    kept -= set().union(*(named_by(line, dependencies) for line in taken_out))
    kept |= {needed for name in kept for needed in dependencies[name]}
    for name in dependencies.keys() - kept:
        (folder / name).unlink()


if __name__ == "__main__":
    main()
