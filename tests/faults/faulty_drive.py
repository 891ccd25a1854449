"""A drive with faults, for nbdkit's Python plugin, over the file `file`.

The faults are rules, Python expressions: `s` is a sector, `n` the number of sectors,
`chance(x)` a number from 0 to 1 that belongs to x. Writing a sector can fail (`bad`), wait
for `seconds` (`stall`, once), lose this server (`server_dies`) or its parent that shows the
drive as a file (`file_dies`). `place` is the sector that is used in its stead; None loses what
is written. Reading can fail (`unreadable`) or give zeros (`blank`), a flush can fail (`flush`)."""

import errno
import os
import signal
import time
import zlib

SECTOR = 512
RULES = ("bad", "stall", "server_dies", "file_dies", "unreadable", "blank", "flush")
API_VERSION = 2
settings = {"errno": "EIO", "seconds": "0", "seed": "0"}


def read_rules(sectors, given):
    """The rules as functions of a sector."""
    def chance(thing):
        return zlib.crc32(f"{given['seed']} {thing}".encode()) / (1 << 32)
    texts = {"place": "s", **dict.fromkeys(RULES, "False"), **given}
    names = {"n": sectors, "chance": chance}
    return {name: eval(f"lambda s: {texts[name]}", names) for name in ("place", *RULES)}


def config(key, value):
    settings[key] = value


def open(readonly):
    settings["fd"] = os.open(settings["file"], os.O_RDWR)
    return read_rules(get_size(None) // SECTOR, settings)


def get_size(_):
    return os.fstat(settings["fd"]).st_size


def fail_if(has_failed):
    if has_failed:
        import nbdkit  # pylint: disable=import-outside-toplevel; it exists only inside nbdkit
        nbdkit.set_error(getattr(errno, settings["errno"]))
        raise RuntimeError(settings["errno"])


def pieces(rules, buffer, offset):
    """A request cut at the sectors: sector, position in the place that is used, memory."""
    done = 0
    while done < len(buffer):
        sector, start = divmod(offset + done, SECTOR)
        part = memoryview(buffer)[done:done + SECTOR - start]
        place = rules["place"](sector)
        yield sector, None if place is None else place * SECTOR + start, part
        done += len(part)


def pread(rules, buffer, offset, _):
    for sector, position, part in pieces(rules, buffer, offset):
        fail_if(rules["unreadable"](sector))
        lost = sector * SECTOR if position is None else position
        data = os.pread(settings["fd"], len(part), lost)
        part[:] = bytes(len(part)) if rules["blank"](sector) else data


def pwrite(rules, buffer, offset, _):
    for sector, position, part in pieces(rules, buffer, offset):
        if rules["stall"](sector):
            time.sleep(float(settings["seconds"]))
            settings["seconds"] = "0"
        for rule, victim in (("server_dies", os.getpid()), ("file_dies", os.getppid())):
            if rules[rule](sector):
                os.kill(victim, signal.SIGKILL)
        fail_if(rules["bad"](sector))
        if position is not None:
            os.pwrite(settings["fd"], part, position)


def flush(rules, _):
    fail_if(rules["flush"](0))
