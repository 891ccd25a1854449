"""A drive with faults, for nbdkit's Python plugin, over the file `file`. docs/faults.md tells of
the rules that say which. nbdkit's filter blocksize makes every request one of whole
sectors."""

import collections
import errno
import os
import signal
import time
import zlib

SECTOR = 512
USUAL = {"place": "s", "kept": "n", "bad": "0", "stall": "0", "dies": "0", "unreadable": "0",
         "blank": "0", "flush": "0", "cache": "0"}
API_VERSION = 2
LAST_TRY = 1 << 20
settings = {"errno": "EIO"}
tries = collections.Counter()  # of reading or writing (the rule's name) a sector
cached = {}  # what was written and has not come to its place yet, by the sector, the oldest first


def read_rules(sectors, given):
    """The rules as functions of a sector and of the number of tries before."""
    names = {"n": sectors, "seconds": int(given["seconds"]), "server": os.getpid(),
             "parent": os.getppid(),
             "chance": lambda x: zlib.crc32(f"{given['seed']} {x}".encode()) / (1 << 32)}
    return {name: eval(f"lambda s, t={LAST_TRY}: {given.get(name, USUAL[name])}", names) for name in USUAL}


def config(key, value):
    settings[key] = value


def open(readonly):
    settings["fd"] = os.open(settings["file"], os.O_RDWR)
    return read_rules(get_size(None) // SECTOR, settings)


def get_size(_):
    return os.fstat(settings["fd"]).st_size


def fail_by(rule, name, sector):
    tries[name, sector] += 1
    if rule(sector, tries[name, sector] - 1):
        import nbdkit  # exists only inside nbdkit
        nbdkit.set_error(getattr(errno, settings["errno"]))
        raise RuntimeError(settings["errno"])


def pread(rules, buffer, offset, _):
    for done in range(0, len(buffer), SECTOR):
        sector = (offset + done) // SECTOR
        fail_by(rules["unreadable"], "unreadable", sector)
        place = rules["place"](sector)
        data = cached.get(sector) or os.pread(settings["fd"], SECTOR,
                                              (sector if place is None else place) * SECTOR)
        buffer[done:done + SECTOR] = bytes(SECTOR) if rules["blank"](sector) else data


def pwrite(rules, buffer, offset, _):
    for done in range(0, len(buffer), SECTOR):
        sector = (offset + done) // SECTOR
        if seconds := rules["stall"](sector):
            time.sleep(seconds)
        if victim := rules["dies"](sector):
            os.kill(victim, signal.SIGKILL)
        fail_by(rules["bad"], "bad", sector)
        cached.pop(sector, None)
        cached[sector] = bytes(buffer[done:done + SECTOR])
        if len(cached) > rules["cache"](0):
            oldest = next(iter(cached))
            put(rules["place"](oldest), cached.pop(oldest))


def put(place, data):
    if place is not None:
        os.pwrite(settings["fd"], data, place * SECTOR)


def flush(rules, _):
    fail_by(rules["flush"], "flush", 0)
