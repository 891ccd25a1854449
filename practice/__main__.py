"""The main job on image files: discovery, countdown, erasing, formatting, "Complete.".

Nothing of this computer is touched: the program sees a private message bus whose disk
service lists three image files and nothing else, and in a window on your display its restart
and shutdown buttons lead nowhere. Everything that is started ends with this run.
"""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import time

from practice.reports import checksum, report_erased, report_unchanged
from practice.stage import used_drives
from practice.stage.private_system import PrivateSystem, press, screenshot
from practice.stage.processes import Processes, wait_until
from practice.stage.program_log import DISCOVERY_SECONDS, Log
from practice.stage.shield import shield_system_commands
from practice.stage.work_folder import make_work_folder

WORK_DIRECTORY = "practice-run"
ERASE_SECONDS = 1800


def parse_arguments():
    parser = argparse.ArgumentParser(prog="practice", description=__doc__.splitlines()[0])
    parser.add_argument("--programs", type=pathlib.Path, required=True,
                        help="the folder of the built or installed program")
    parser.add_argument("--emulate", action="store_true",
                        help="switch emulation on and prove that no byte changes")
    parser.add_argument("--virtual", action="store_true",
                        help="use a virtual screen also when there is a display")
    parser.add_argument("--size", metavar="WxH", help="fill a virtual screen of this size "
                        "(default: an 800x600 window on an 800x600 screen)")
    parser.add_argument("--keep", action="store_true", help="keep the image files")
    return parser.parse_args()


def is_virtual(arguments):
    return arguments.virtual or arguments.emulate or not os.environ.get("DISPLAY")


def switch_emulation_on(display):
    """By the keys of the hidden program menu."""
    press(display, "alt+shift+m", "e")


def follow(log, window, display, directory, emulate):
    """Watches the automatic path on a virtual screen to its end."""
    log.wait_for(r"3 drives found", DISCOVERY_SECONDS, "discovery")
    wait_until(lambda: log.text().count("initTimeout()") > 2, DISCOVERY_SECONDS, "discovery")
    screenshot(display, directory, "1-initializing")
    if emulate:
        switch_emulation_on(display)
    log.wait_for("erasing in 8 seconds", DISCOVERY_SECONDS, "countdown")
    screenshot(display, directory, "2-countdown")
    log.wait_for(r"stdout: progress: [3-9]\d", DISCOVERY_SECONDS, "erasing")
    screenshot(display, directory, "3-erasing")
    drives = range(len(used_drives.DRIVES))
    wait_until(lambda: window.poll() is not None or all(map(log.is_over, drives)),
               ERASE_SECONDS, "the end of all jobs")
    time.sleep(1)  # until the last row is painted
    screenshot(display, directory, "4-complete")


def run_program(arguments, directory, images, log):
    display = None if is_virtual(arguments) else os.environ["DISPLAY"]
    with Processes() as processes:
        system = PrivateSystem(processes, arguments.programs, directory, display, arguments.size)
        system.start_disk_service({image: drive.description()
                                   for image, drive in zip(images, used_drives.DRIVES)})
        window = system.start_program()
        if is_virtual(arguments):
            follow(log, window, system.display, directory, arguments.emulate)
        else:
            print("The report comes when you close the window.")
            window.wait()


def main():
    arguments = parse_arguments()
    shield_system_commands(is_virtual(arguments))
    directory = make_work_folder(pathlib.Path.cwd() / WORK_DIRECTORY)
    print(f"Making {len(used_drives.DRIVES)} used drives in {directory}")
    log = Log(directory / "log.txt")
    images = []
    try:
        images = [used_drives.make(drive, directory) for drive in used_drives.DRIVES]
        before = {image: checksum(image) for image in images} if arguments.emulate else {}
        run_program(arguments, directory, images, log)
        is_good = (report_unchanged(images, before, log) if arguments.emulate
                   else report_erased(images, log))
    except (TimeoutError, RuntimeError, subprocess.CalledProcessError) as error:
        print(f"practice: {error}; see {directory}/log.txt", file=sys.stderr)
        is_good = False
    shutil.rmtree(directory / "old-files", ignore_errors=True)
    if not arguments.keep:
        for image in images:
            image.unlink()
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
