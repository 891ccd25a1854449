"""Erases drives that fail or lie, first with the driver alone and then all of them at once under
the program, and compares what is left with what could be written, byte by byte.

only=EXPRESSION chooses faults by a regular expression, which is looked for in their names and
lines of docs/faults.md. more=FILE adds the faults of a file in the form of
tests/faults/faults.toml, such as:

    [[fault]]
    name = "first sector"
    kind = "write"
    rules.bad = "s == 0"
"""

import errno
import os
import pathlib
import re
import shutil
import subprocess
import sys

from practice.stage.erased_drive import SECTOR, check, pattern_sector
from practice.stage.processes import Processes, wait_until
from tests.faults import faulty_drive
from tests.faults.faults import TABLE, read_faults
from tests.faults.watched_run import WatchedRun, clear, prepare, report, show_as_file

MAX_MARKS = 1000  # sectors with neither the old nor the new that an unfinished run may leave
IN_FLIGHT_SECTORS = 8 * (2 << 20) // 512
RUN_SECONDS = 3600


class Drive:
    """A faulty drive, as the file `path`; what it really holds is in `medium`."""

    def __init__(self, fault, directory, options, processes):
        self.name, self.kind = fault.name, fault.kind
        self.settings = {"seed": options.seed, "seconds": options.seconds, **fault.rules}
        folder = directory / re.sub(r"\W", "-", self.name)
        folder.mkdir(parents=True)
        self.path = self.medium = folder / folder.name
        self.old = options.directory / "old"
        if "setup" in self.settings:
            self.old = pathlib.Path("/dev/zero")
            names = {"drive": self.path, "folder": folder, "size": str(options.size << 20)}
            processes.start(["sh", "-c", self.settings["setup"]], names)
            wait_until(lambda: self.path.exists() and self.path.stat().st_size, 10, "the setup")
        else:
            self.medium = folder / "medium"
            shutil.copyfile(self.old, self.medium)
            show_as_file(processes, self.path, [
                "--filter=error", "--filter=delay", "--filter=blocksize", "python",
                faulty_drive.__file__, f"file={self.medium}", f"minblock={SECTOR}",
                *(f"{name}={value}" for name, value in self.settings.items())])
        self.sectors = range(self.path.stat().st_size // SECTOR)
        self.rules = faulty_drive.read_rules(len(self.sectors), self.settings)

    def states(self):
        """A letter for each sector: written, old, or something else."""
        with self.medium.open("rb") as medium, self.old.open("rb") as before:
            pairs = ((medium.read(SECTOR), before.read(SECTOR)) for _ in self.sectors)
            states = "".join("o" if now == old else "w" if now == pattern_sector() else "?"
                             for now, old in pairs)
        return states[:self.rules["kept"](0)]

    def wrong(self, code, message):
        """What is wrong with the end of the run and with what it left; empty when nothing is."""
        states, verb = self.states(), "read" if self.kind == "read" else "written"
        fails = self.rules["unreadable" if verb == "read" else "bad"]
        bad = [s for s in self.sectors if fails(s)]
        reached = {self.rules["place"](s) for s in self.sectors if verb != "read" and not fails(s)}
        wanted = "".join("w" if s in reached else "o" for s in self.sectors)
        if self.kind == "some":  # which ones fail nobody knows before
            bad = [s for s, state in enumerate(states) if state != "w"]
            # A mark that could not be overwritten stays, and counts as bad.
            wanted = states if states.count("?") <= MAX_MARKS else states.replace("?", "!")
        if self.kind in ("gone", "lie") and states.count("?") <= MAX_MARKS:
            states = states.replace("?", "w")
        late = {s for s, state in enumerate(states) if state == "o" and wanted[s] == "w"}
        if late and len(late) <= self.rules["cache"](0):  # what had not come to its place yet
            wanted = "".join("o" if s in late else state for s, state in enumerate(wanted))
        if self.kind == "gone":
            sure = len(self.sectors) // 3 - IN_FLIGHT_SECTORS  # requests end in any order
            end = max((states + "o").index("o"), sure)
            wanted = ("w" * end + states[end:end + IN_FLIGHT_SECTORS]).ljust(len(states), "o")
        text = ": flush: Input/output error" if self.kind == "flush" else ""
        if self.kind == "gone" or self.kind == "lie" and "o" in wanted:
            text = f"{self.path}: " + ("" if self.kind == "gone" else "read back: ")
        elif bad:
            reason = os.strerror(getattr(errno, self.settings.get("errno", "EIO")))
            text = (f"{len(bad)} sectors could not be {verb}, "
                    f"first at sector {bad[0]} of {self.path}: {reason}")
        elif self.kind == "unproven":
            unread = [s for s in self.sectors if self.rules["unreadable"](s)]
            text = (f"{self.path}: read back: {len(unread)} of the {len(self.sectors)} sectors "
                    f"looked at could not be read, first at sector {unread[0]}: ")
        if code != int(text != "") or text not in message:
            return f"exit {code}, not {int(text != '')} and '{text}'"
        wrong = [s for s in range(len(wanted)) if states[s:s + 1] != wanted[s]]
        return f"{len(wrong)} sectors are wrong, first {wrong[0]}" if wrong else ""


def run_driver(drive, options):
    """A row of the table for the driver alone: name, outcome, message, what is wrong."""
    done = subprocess.run(
        ["timeout", "--signal=KILL", str(RUN_SECONDS), f"{options.build}/bin/lib/driver",
         f"device={drive.path}", f"mode={'read' if drive.kind == 'read' else 'write'}",
         "pattern=VANTRELLE", "sectorsPerTime=256"], stdout=subprocess.PIPE, text=True, check=False)
    message = "".join(re.findall("^error: (.*)", done.stdout, re.MULTILINE))
    wrong = drive.wrong(done.returncode, message)
    if ("progress: 100\n" in done.stdout) != (done.returncode == 0):
        wrong += " 100 percent"
    return drive.name, f"exit {done.returncode}", message, wrong


def run_program(drives, options, processes):
    """The rows for all drives under the program, where erased drives are formatted too."""
    files = {drive.name: drive.path for drive in drives}
    run = WatchedRun(processes, options, options.directory / "run", files)
    is_read = drives[0].kind == "read"
    if is_read:
        run.order("actionEmulateErasing")
    screen, log = run.finish(RUN_SECONDS), run.log.text()
    for drive in drives:
        job = re.search(rf"id: (\d+): start: \S*/driver device={drive.path} ", log)[1]
        codes = re.findall(rf"id: {job}: finished: exitCode: (\d+)", log)
        message = "".join(re.findall(rf"id: {job}: stdout: error: (.*)", log))
        if codes == ["0", "1"] and drive.kind == "some":  # it struck while formatting
            wrong, box = "", "Formatting failed: exit code: 1"
        elif codes == ["0", "0"] and not is_read:
            wrong, box = ", ".join(check(drive.medium, run.log.picture(drive.path))[0]), ""
        else:
            wrong, box = drive.wrong(int(codes[0]), message), f"Erasing failed: {message}"
        row, boxes = screen["rows"][drive.name], "\0".join([*screen["boxes"], ""])
        is_told = f"{drive.name}\n\n{box}\0" in boxes
        if row != ("ERROR" if is_told else "DONE") or is_told != ("1" in codes):
            wrong += f" row or message boxes: {screen['boxes']}"
        yield drive.name, row, message, wrong


def run_all(faults, options):
    with (options.directory / "old").open("wb") as old:
        subprocess.run(["head", "-c", f"{options.size}M", "/dev/urandom"], stdout=old, check=True)
    for fault in faults:
        with Processes() as processes:
            drive = Drive(fault, options.directory / "alone", options, processes)
            yield run_driver(drive, options)
        clear(options.directory / "alone")
    reading = [fault for fault in faults if fault.kind == "read"]
    for group in ([fault for fault in faults if fault.kind != "read"], reading):
        if not group or not options.program:
            continue
        with Processes() as processes:
            drives = [Drive(fault, options.directory / "drives", options, processes)
                      for fault in group]
            yield from run_program(drives, options, processes)
        clear(options.directory / "drives")
        shutil.rmtree(options.directory / "run")


def missing_for(fault, options):
    """What this computer lacks to try the fault; empty when nothing is missing."""
    setup = fault.rules.get("setup")
    if setup is None:
        return options.missing
    return "root" if "mount" in setup and os.geteuid() != 0 else ""


def main():
    options = prepare(__doc__, size=64, seed=5, seconds=30, program=1, only="", more="")
    faults = [fault for path in (TABLE, options.more) if path
              for fault in read_faults(pathlib.Path(path)) if fault.matches(options.only)]
    if not faults:
        sys.exit(f"there is no fault that only={options.only} matches")
    for fault in list(faults):
        if missing := missing_for(fault, options):
            print(f"skipped, there is no {missing}: {fault.row()}")
            faults.remove(fault)
    return report(run_all(faults, options))


if __name__ == "__main__":
    sys.exit(main())
