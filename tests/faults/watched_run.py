"""The program on a bus of its own, with drives that are files, and what its screen shows."""

import json
import pathlib
import re
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "practice"))
from practice_run import Log
from processes import wait_until

HANG_SECONDS = 10
SCREEN_TAIL_BYTES = 1 << 16  # room for some lines


def show_as_file(processes, path, server):
    """Starts nbdkit with this part of a command line, its drive seen as the file `path`."""
    path.touch()
    processes.start(["nbdfuse", path, "[", "nbdkit", "--exit-with-parent", *server, "]"],
                    stderr=path.with_suffix(".messages").open("w"))
    wait_until(lambda: path.stat().st_size, HANG_SECONDS, f"nbdfuse {path}")


class WatchedRun:
    """`drives` are the files by the name (model) that the screen shows."""

    def __init__(self, processes, binaries, directory, drives):
        self._screen, self.log = directory / "screen", Log(directory / "log")
        (directory / "lib").mkdir(parents=True)
        for name in ("driver", "format", "boot"):
            (directory / "lib" / name).symlink_to(binaries / "lib" / name)
        messages = (directory / "messages").open("w")
        environment = {"DBUS_SYSTEM_BUS_ADDRESS": processes.start_bus(messages),
                       "QT_QPA_PLATFORM": "offscreen", "QT_PLUGIN_PATH": str(binaries),
                       "QT_QPA_GENERIC_PLUGINS": f"screen_reader:{self._screen}"}
        images = [part for name, path in drives.items()
                  for part in ("--image", f"{path},model={name}")]
        # The program skips two characters after "lib=".
        commands = (["diskservice", *images],
                    ["vantrelleplus", f"lib=..{directory}/lib", f"dbg={directory}/log"])
        self.service, self.program = (
            processes.start([binaries / command[0], *command[1:]], environment, stderr=messages)
            for command in commands)
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
        return (not re.search(r"%|INIT|FORMAT", str(screen["rows"])) and
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
        times = [int(ms) for ms in re.findall(r'"ms":(\d+)', self._screen.read_text())]
        longest = max(later - earlier for earlier, later in zip(times, times[1:]))
        if self.program.wait(HANG_SECONDS) != 0 or longest > HANG_SECONDS * 1000:
            raise RuntimeError(f"it ended with {self.program.returncode}, stood for {longest} ms")
        return screen
