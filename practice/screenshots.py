"""Makes the screenshots of the README: the automatic screen and each manual tool, on the image
files of the practice run and on a virtual screen."""

import argparse
import pathlib
import shutil
import sys
import tempfile
import time

from practice.stage import used_drives
from practice.stage.private_system import PrivateSystem, press, screenshot
from practice.stage.processes import Processes
from practice.stage.program_log import Log
from practice.stage.shield import shield_system_commands

SCREEN = "800x600"
SETTLE_SECONDS = 1.5  # until a window is painted; nothing tells when it is


class Tour:
    """Presses keys and takes pictures of what they open."""

    def __init__(self, display, output):
        self._display = display
        self._output = output

    def press(self, *keys):
        press(self._display, *keys)
        time.sleep(SETTLE_SECONDS)

    def open_from_menu(self, letter):
        self.press("alt+shift+m")
        self.press(letter)

    def picture(self, name):
        screenshot(self._display, self._output, name)


def show_tools(tour):
    tour.press("alt+t")  # ends the discovery
    tour.press("alt+t")  # stops the countdown
    tour.press("alt+shift+m")
    tour.picture("menu")
    tour.press("w", "alt+n")
    tour.picture("wizard")
    tour.press("alt+v", *"2048")  # the boot sector of its first partition
    tour.picture("viewer")
    tour.press("Escape", "alt+n")
    tour.picture("wipe")
    tour.press("alt+n")
    tour.picture("format")
    tour.press("alt+n", "alt+f")  # "Finish" has the keyboard, so this restarts nothing
    tour.open_from_menu("m")
    tour.picture("mounter")
    tour.press("Escape")


def show_erasing(tour, log):
    tour.press("alt+i")  # starts the discovery again
    log.wait_for("erasing in 1 second", 60, "the countdown")
    log.wait_for(r"stdout: progress: [4-9]\d", 60, "erasing")
    tour.picture("erasing")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--programs", type=pathlib.Path, required=True,
                        help="the folder of the built or installed program")
    parser.add_argument("--output", type=pathlib.Path, required=True, help="for the pictures")
    arguments = parser.parse_args()
    shield_system_commands(is_virtual=True)
    directory = pathlib.Path(tempfile.mkdtemp(prefix="vantrelleplus-"))
    try:
        images = [used_drives.make(drive, directory) for drive in used_drives.DRIVES]
        with Processes() as processes:
            system = PrivateSystem(processes, arguments.programs, directory, size=SCREEN)
            system.start_disk_service({image: drive.description()
                                       for image, drive in zip(images, used_drives.DRIVES)})
            system.start_program()
            time.sleep(SETTLE_SECONDS)
            tour = Tour(system.display, arguments.output)
            show_tools(tour)
            show_erasing(tour, Log(directory / "log.txt"))
    finally:
        shutil.rmtree(directory)


if __name__ == "__main__":
    sys.exit(main())
