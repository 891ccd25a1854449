#!/usr/bin/env python3
"""Erases drives that fail or lie, first with the driver alone and then all of them at once under
the program, and compares what is left with what could be written, byte by byte."""

import argparse
import errno
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile

import faulty_drive
from watched_run import WatchedRun, show_as_file
from erased_drive import PATTERN_SECTOR, SECTOR, check
from practice_run import shield_system_commands
from processes import Processes

# Name, kind, and the rules of faulty_drive.py or settings of nbdkit's filters error and delay.
FAULTS = """\
healthy | write
slow | write | wdelay=2ms
stalls | write | stall=s == n // 2
bad sectors | write | bad=s in (0, n // 2, n - 1)
bad run | write | bad=n // 3 <= s < n // 3 + 1000
scattered bad sectors | write | bad=chance(s) < 0.001
random errors | some | error=EIO | error-pwrite-rate=0.001
every write fails | write | bad=True
goes read-only | write | bad=s >= n // 2 | errno=EPERM
disk full below | some | errno=ENOSPC
flush fails | flush | flush=True
shrinks | gone
server vanishes | gone | server_dies=s == n // 2
drive vanishes | gone | file_dies=s == n // 2
readable | read
unreadable sectors | read | unreadable=s in (0, n // 2, n - 1)
unreadable run | read | unreadable=n // 3 <= s < n // 3 + 1000
wraps at half | lie | place=s % (n // 2)
wraps at a third | lie | place=s % (n // 3)
wraps at an odd size | lie | place=s % (n * 5 // 8 + 7)
end stays old | lie | place=s if s < n * 2 // 3 else None
end reads as zeros | lie | place=s if s < n * 2 // 3 else None | blank=s >= n * 2 // 3
drops 1 % of steps | lie | place=None if chance(s // 256) < 0.01 else s
ends in one sector | lie | place=min(s, n // 2)
alias in the middle | lie | place=s - n // 8 if n * 3 // 8 <= s < n // 2 else s"""
MAX_MARKS = 64  # sectors with neither the old nor the new that an unfinished run may leave
IN_FLIGHT_SECTORS = 64 * 256
SHRINKING_BYTES = 512 << 20  # takes long enough to be caught in the middle
SHRINK = """import os, sys, time
file, size = os.open(sys.argv[1], os.O_RDWR), int(sys.argv[2])
while os.pread(file, 512, size // 3) == bytes(512): time.sleep(0.001)
os.truncate(file, size // 2)"""


class Drive:
    """A faulty drive, as the file `path`; what it really holds is in `medium`."""

    def __init__(self, fault, directory, options, processes):
        self.name, self.kind, *settings = fault.split(" | ")
        directory.mkdir(exist_ok=True)
        self.path = self.medium = directory / re.sub(r"\W", "-", self.name)
        self.old, size = pathlib.Path("/dev/zero"), options.size << 20
        if self.name == "shrinks":
            size = SHRINKING_BYTES
            self.path.touch()
            processes.start([sys.executable, "-c", SHRINK, self.path, size])
        elif self.name == "disk full below":
            self.path.mkdir()
            limit = f"size={size // 2}"
            subprocess.run(["mount", "-t", "tmpfs", "-o", limit, "tmpfs", self.path], check=True)
            self.path = self.medium = self.path / "file"
        else:
            self.old, self.medium = directory.parent / "old", self.path.with_suffix(".medium")
            shutil.copyfile(self.old, self.medium)
            settings += [f"seed={options.seed}", f"seconds={options.stall}"]
            show_as_file(processes, self.path, ["--filter=error", "--filter=delay", "python",
                                                faulty_drive.__file__, f"file={self.medium}",
                                                *settings])
        with self.medium.open("ab") as file:
            file.truncate(size)
        self.sectors = size // SECTOR
        self.settings = {"seed": "", **dict(setting.split("=", 1) for setting in settings)}
        self.rules = faulty_drive.read_rules(self.sectors, self.settings)

    def states(self):
        """A letter for each sector: written, old, or something else."""
        states = ""
        with self.medium.open("rb") as medium, self.old.open("rb") as before:
            while data := medium.read(SECTOR << 8):
                old, new = before.read(len(data)), PATTERN_SECTOR * (len(data) // SECTOR)
                step = len(data) if data in (old, new) else SECTOR
                for i in range(0, len(data), step):
                    part = data[i:i + step]
                    state = "o" if part == old[i:i + step] else "w" if part == new[:step] else "?"
                    states += state * (step // SECTOR)
        return states

    def wrong(self, code, message):
        """What is wrong with the end of the run and with what it left; empty when nothing is."""
        states, is_read = self.states(), self.kind == "read"
        bad = [s for s in range(self.sectors) if self.rules["unreadable" if is_read else "bad"](s)]
        reached = set() if is_read else {self.rules["place"](s)
                                         for s in set(range(self.sectors)) - set(bad)}
        wanted = "".join("ow"[s in reached] for s in range(self.sectors))
        if self.kind == "some":  # which ones fail nobody knows before
            bad = [s for s, state in enumerate(states) if state != "w"]
            wanted = states.replace("?", "!")
        if self.kind in ("gone", "lie") and states.count("?") <= MAX_MARKS:
            states = states.replace("?", "w")
        if self.kind == "gone":
            states = states[:self.sectors // 2 if self.name == "shrinks" else None]
            end = max((states + "o").index("o"), self.sectors // 3)
            wanted = "w" * end + states[end:end + IN_FLIGHT_SECTORS]
            wanted += "o" * (len(states) - len(wanted))
        text = f": flush: {os.strerror(errno.EIO)}" if self.kind == "flush" else ""
        if self.kind == "gone" or self.kind == "lie" and "o" in wanted:
            text = ": "
        elif bad:
            reason = os.strerror(getattr(errno, self.settings.get("errno", "EIO")))
            text = (f"{len(bad)} sectors could not be {'read' if is_read else 'written'}, "
                    f"first at sector {bad[0]}: {reason}")
        wrong = [s for s, (state, want) in enumerate(zip(states, wanted)) if state != want]
        if code != int(text != "") or text not in message:
            return f"not exit {int(text != '')}, '{text}'"
        return f"{len(wrong)} sectors are wrong, first {wrong[0]}" if wrong else ""


def run_driver(drive, options):
    """The row of the table, and what is wrong, for the driver alone."""
    mode = "read" if drive.kind == "read" else "write"
    done = subprocess.run(
        ["timeout", "--signal=KILL", str(options.timeout), options.binaries / "lib/driver",
         f"device={drive.path}", f"mode={mode}", "pattern=VANTRELLE", "sectorsPerTime=256"],
        stdout=subprocess.PIPE, text=True, check=False)
    lines = done.stdout.splitlines() or [""]
    message = lines[-1].removeprefix("error: ") if lines[-1].startswith("error: ") else ""
    is_right = ("progress: 100" in lines) == (done.returncode == 0)
    return (f"exit {done.returncode}", message,
            drive.wrong(done.returncode, message) or ("" if is_right else "100 percent"))


def run_program(drives, directory, options, processes, is_read):
    """The same for all drives under the program; a drive that was erased is formatted too."""
    run = WatchedRun(processes, options.binaries, directory, {d.name: d.path for d in drives})
    if is_read:
        run.order("actionEmulateErasing")
    screen = run.finish(options.timeout)
    log = run.log.text()
    for drive in drives:
        job = re.search(rf"id: (\d+): start: \S*/driver device={drive.path} ", log)[1]
        code = int(re.search(rf"id: {job}: finished: exitCode: (\d+)", log)[1])
        message = (re.findall(rf"id: {job}: stdout: error: (.*)", log) or [""])[0]
        row = screen["rows"][drive.name]
        picture = run.log.picture(drive.path)
        wrong = (", ".join(check(drive.medium, picture)[0]) if code == 0 and not is_read
                 else drive.wrong(code, message))
        box = f"{drive.name}\n\nErasing failed: {message}"
        if row != ("ERROR" if code else "DONE"):
            wrong += " row"
        if code and not any(text.endswith(box) for text in screen["boxes"]):
            wrong += " no message box"
        yield drive.name, row, message, wrong


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--binaries", type=pathlib.Path, required=True, help="the built programs")
    parser.add_argument("--directory", help="where to make the drives (default: as mktemp)")
    parser.add_argument("--size", type=int, default=64, help="of a drive, in MiB (default: 64)")
    parser.add_argument("--seed", type=int, default=5, help="for the random faults (default: 5)")
    parser.add_argument("--stall", type=int, default=30, help="seconds (default: 30)")
    parser.add_argument("--timeout", type=int, default=900, help="seconds for a run")
    parser.add_argument("--only", default="", help="a regular expression of lines of the table")
    parser.add_argument("--fault", action="append", default=[], help="a line more for the table")
    parser.add_argument("--driver-only", action="store_true", help="leave the program out")
    options = parser.parse_args()
    options.binaries = options.binaries.resolve()
    return options


def is_possible(fault):
    missing = [name for name in ("nbdkit", "nbdfuse") if not shutil.which(name)]
    missing += [] if os.access("/dev/fuse", os.R_OK | os.W_OK) else ["/dev/fuse"]
    if fault.startswith("disk full"):
        missing = [] if os.geteuid() == 0 else ["root"]
    if missing and not fault.startswith("shrinks"):
        print(f"skipped: {fault.split(' | ')[0]}: there is no {', '.join(missing)}")
    return not missing or fault.startswith("shrinks")


def show(name, state, message, wrong):
    print(f"{name:22} {state:7} {'WRONG ' + wrong if wrong else 'right'}: {message}", flush=True)
    return not wrong


def clear(directory):
    for line in pathlib.Path("/proc/mounts").read_text().splitlines():
        if (path := line.split()[1]).startswith(str(directory)):
            unmount = 'fusermount3 -uzq "$0" || umount -l "$0"'
            subprocess.run(["sh", "-c", unmount, path], check=False)
    shutil.rmtree(directory)


def run_all(faults, options, directory):
    """Gives whether each row is right, for each."""
    for fault in faults:
        with Processes() as processes:
            drive = Drive(fault, directory / "drives", options, processes)
            yield show(drive.name, *run_driver(drive, options))
        clear(directory / "drives")
    if options.driver_only:
        return
    print("All at once under the program:")
    with Processes() as processes:
        drives = [Drive(fault, directory / "drives", options, processes) for fault in faults]
        for is_read in (False, True):
            chosen = [drive for drive in drives if (drive.kind == "read") == is_read]
            for row in run_program(chosen, directory / f"run{is_read}", options, processes, is_read):
                yield show(*row)


def main():
    options = parse_arguments()
    shield_system_commands(argparse.Namespace(virtual=True))
    faults = [fault for fault in FAULTS.splitlines() + options.fault
              if re.search(options.only, fault) and is_possible(fault)]
    directory = pathlib.Path(tempfile.mkdtemp(dir=options.directory))
    block = random.Random(options.seed).randbytes(1000003)  # not whole sectors: all differ
    with (directory / "old").open("wb") as old:
        while old.tell() < options.size << 20:
            old.write(block)
        old.truncate(options.size << 20)
    try:
        return 0 if all(list(run_all(faults, options, directory))) else 1
    finally:
        clear(directory)


if __name__ == "__main__":
    sys.exit(main())
