"""Kills one of the processes of a run at a random moment, again and again, and looks at what the
screen shows, what is left running, and whether the next run on the same drives is right."""

import multiprocessing
import os
import random
import signal
import subprocess
import sys
import time

from practice.stage.erased_drive import check
from practice.stage.processes import Processes, wait_until
from tests.faults.watched_run import WatchedRun, clear, prepare, report, show_as_file

# What is killed, by its command line, and the seconds of its life, at this pace on two cores.
VICTIMS = {"lib/driver": 6, "lib/format": 3, "bin/diskservice": 30, "dbus-daemon": 30,
           "bin/vantrelleplus": 30}
PACE = ("rate=40M", "wdelay=2ms")
DRIVES = range(3)
RUN_SECONDS, END_SECONDS = 300, 2
HELPERS = "(lib/driver|lib/format|mkfs.fat|mcopy|mmd) "


def start(processes, options, directory):
    """A run on drives whose media stay from one run to the next."""
    drives = {f"drive{number}": directory / f"drive{number}" for number in DRIVES}
    directory.mkdir(parents=True)
    for path in drives.values():
        medium = directory.with_name(path.name)
        with medium.open("ab") as file:
            file.truncate(options.size << 20)
        show_as_file(processes, path, ["--filter=noparallel", "--filter=delay", "--filter=rate",
                                       "file", medium, *PACE])
    return WatchedRun(processes, options, directory / "run", drives)


def find(pattern):
    """The processes of this session, which is that of one plan, that were started so."""
    found = subprocess.run(["pgrep", "-s", "0", "-f", rf"^\S*{pattern}"], stdout=subprocess.PIPE,
                           check=False)
    return [int(process) for process in found.stdout.split()]


def wrong_after(run, victim, drive, before):
    """What is not as it has to be after the kill, when the screen showed `before`."""
    if victim == "bin/vantrelleplus":
        wait_until(lambda: not find(HELPERS), END_SECONDS, f"the end of all {HELPERS}")
        return ""
    screen = run.finish(RUN_SECONDS)
    rows, boxes = {f"drive{number}": "DONE" for number in DRIVES}, []
    if drive is not None:
        rows[drive] = "ERROR"
        boxes = [f"{'Erasing' if victim == 'lib/driver' else 'Formatting'} failed: exit code: 9"]
    elif before["information"].startswith("Initializing") and not screen["rows"]:
        rows, boxes = {}, ["No drives found. "]
    is_told = [box in shown and (drive or "") in shown
               for box, shown in zip(boxes, screen["boxes"], strict=True)]
    return "" if screen["rows"] == rows and all(is_told) else f"{screen['rows']} {screen['boxes']}"


def kill(run, victim, chance):
    """Gives the moment, what the screen showed then, and the drive that it was about."""
    drive = f"drive{chance.choice(DRIVES)}" if victim.startswith("lib/") else None
    pattern = f"{victim} .*{drive or ''}"
    wait_until(lambda: find(pattern), RUN_SECONDS, pattern)
    moment = chance.uniform(0, VICTIMS[victim])
    time.sleep(moment)
    before, found = run.screen(), find(pattern)
    for process in found:
        os.kill(process, signal.SIGKILL)
    return moment, before, drive if found else None


def one_run(plan):
    options, victim, number = plan
    os.setsid()
    directory = options.directory / f"{victim.split('/')[-1]}{number}"
    moment, before, wrong = 0, {"information": "", "rows": {}}, ""
    try:
        with Processes() as processes:
            run = start(processes, options, directory / "killed")
            chance = random.Random(f"{options.seed} {victim} {number}")
            moment, before, drive = kill(run, victim, chance)
            wrong = wrong_after(run, victim, drive, before)
        with Processes() as processes:
            run = start(processes, options, directory / "next")
            run.finish(RUN_SECONDS)
            for number in DRIVES:
                picture = run.log.picture(directory / f"next/drive{number}")
                wrong += ", ".join(check(directory / f"drive{number}", picture)[0])
    except (OSError, ValueError, RuntimeError, AttributeError) as error:
        wrong += repr(error)
    clear(directory)
    shown = f"{before['information']} {' '.join(before['rows'].values())}"
    return victim, f"{moment:5.2f} s", shown, wrong


def main():
    options = prepare(__doc__, size=40, seed=1, count=20, jobs=6, only=" ".join(VICTIMS))
    if options.missing:
        sys.exit(f"there is no {options.missing}")
    plans = [(options, victim, number) for victim in options.only.split()
             for number in range(options.count)]
    with multiprocessing.Pool(options.jobs, maxtasksperchild=1) as pool:
        return report(pool.imap(one_run, plans, chunksize=1))


if __name__ == "__main__":
    sys.exit(main())
