"""What both benches need: drives that nbdkit makes, and the program on a bus of its own with
such drives, of which the plugin screen_reader tells what the screen shows."""

import atexit
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import types

from practice.stage.private_system import PrivateSystem
from practice.stage.processes import wait_until
from practice.stage.program_log import Log
from practice.stage.shield import shield_system_commands

HANG_SECONDS = 10
SCREEN_TAIL_BYTES = 1 << 16  # room for some lines
RULER = """while sleep 0.1; do date '+"ms":%s%3N' >>"$0"; done"""


def prepare(description, **usual):
    """Reads the settings, given as NAME=VALUE, and makes a directory for what the run makes; it
    is removed at the end."""
    usual |= {"build": "build/release", "directory": tempfile.gettempdir()}
    given = dict(argument.partition("=")[::2] for argument in sys.argv[1:])
    if not given.keys() <= usual.keys():
        print(f"{description}\n\nThe settings, NAME=VALUE, and their usual values: {usual}")
        sys.exit(0 if "--help" in given else 2)
    settings = {name: type(value)(given.get(name, value)) for name, value in usual.items()}
    shield_system_commands(is_virtual=True)
    options = types.SimpleNamespace(**settings)
    options.missing = ", ".join([tool for tool in ("nbdkit", "nbdfuse") if not shutil.which(tool)] +
                                ["/dev/fuse"] * (not os.access("/dev/fuse", os.R_OK | os.W_OK)))
    options.directory = pathlib.Path(tempfile.mkdtemp(dir=options.directory)).resolve()
    atexit.register(clear, options.directory)
    options.build = pathlib.Path(options.build).resolve()
    return options


def report(results):
    """Prints a line for each result (name, state, message, what is wrong); gives the exit code."""
    is_wrong = False
    for name, state, message, wrong in results:
        is_wrong |= bool(wrong)
        outcome = f"WRONG {wrong}" if wrong else "right"
        print(f"{name:22} {state:7} {outcome}: {message}", flush=True)
    return int(is_wrong)


def clear(directory):
    """Removes it, with what is mounted in it by a server that was killed."""
    for line in pathlib.Path("/proc/mounts").read_text().splitlines():
        if (path := line.split()[1]).startswith(f"{directory}/"):
            unmount = 'fusermount3 -uzq "$0" || umount -l "$0"'
            subprocess.run(["sh", "-c", unmount, path], check=False)
    shutil.rmtree(directory)


def show_as_file(processes, path, server):
    """Starts nbdkit with this part of a command line, its drive seen as the file `path`."""
    path.touch()
    processes.start(["nbdfuse", path, "[", "nbdkit", "--exit-with-parent", *server, "]"],
                    stderr=path.with_suffix(".messages").open("w"))
    wait_until(lambda: path.stat().st_size, HANG_SECONDS, f"nbdfuse {path}")


def longest_gap(path):
    """The longest time between two looks, in milliseconds."""
    times = [int(ms) for ms in re.findall(r'"ms":(\d+)', path.read_text())]
    return max(later - earlier for earlier, later in zip(times, times[1:]))


class WatchedRun:
    """`drives` are the files by the name (model) that the screen shows."""

    def __init__(self, processes, options, directory, drives):
        directory.mkdir(parents=True)
        self._screen, self.log = directory / "screen", Log(directory / "log.txt")
        os.environ |= {"QT_PLUGIN_PATH": f"{options.build}/bin",
                       "QT_QPA_GENERIC_PLUGINS": f"screen_reader:{self._screen}"}
        self._ruler = directory / "ruler"  # the same by a shell, for when the machine stands
        processes.start(["sh", "-c", RULER, self._ruler])
        system = PrivateSystem(processes, options.build / "bin", directory)
        system.start_disk_service({path: f"model={name}" for name, path in drives.items()})
        self._program = system.start_program()
        wait_until(lambda: self._screen.exists() and self._screen.stat().st_size, HANG_SECONDS,
                   "the screen")

    def screen(self):
        """What it shows now, the rows' states by the drives' names."""
        with self._screen.open("rb") as file:
            file.seek(max(0, self._screen.stat().st_size - SCREEN_TAIL_BYTES))
            screen = json.loads(file.read().split(b"\n")[-2])
        rows = {text.split(" / ")[1]: state for text, state in screen["rows"].items()}
        return {**screen, "rows": rows}

    def order(self, word):
        """Makes it press OK ("answer"), or an entry of the menu by the action's name."""
        link = self._screen.with_suffix(".do")
        link.symlink_to(word)
        wait_until(lambda: not link.is_symlink(), HANG_SECONDS, word)

    def is_over(self):
        screen = self.screen()
        return (not re.search(r"%|INIT|FORMAT", " ".join(screen["rows"].values())) and
                (screen["rows"] or screen["information"] == "No drives found"))

    def finish(self, seconds):
        """Waits until nothing happens to any drive, gives what the screen shows then, answers
        the message boxes, and quits. Fails when it does not go like that."""
        wait_until(self.is_over, seconds, "the end of all jobs")
        screen = self.screen()
        while self.screen()["boxes"]:
            self.order("answer")
        wait_until(lambda: self.screen()["information"] in ("Complete.", "No drives found"),
                   HANG_SECONDS, "Complete.")
        self.order("actionQuit")
        gap, machine_gap = map(longest_gap, (self._screen, self._ruler))
        if self._program.wait(HANG_SECONDS) != 0 or gap > HANG_SECONDS * 1000 + machine_gap:
            raise RuntimeError(f"it ended with {self._program.returncode} and stood for {gap} ms, "
                               f"the machine for {machine_gap} ms")
        return screen
