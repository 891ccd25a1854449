"""The main job on image files: discovery, countdown, erasing, formatting, "Complete.".

Nothing of this computer is touched: the program sees a private message bus whose disk
service lists three image files and nothing else, and in a window on your display its restart
and shutdown buttons lead nowhere. Everything that is started ends with this run.
"""

import argparse
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

from practice.stage import erased_drive, used_drives
from practice.stage.private_system import Stage, press, screenshot
from practice.stage.processes import Processes, wait_until

WORK_DIRECTORY = "practice-run"
SYSTEM_COMMANDS = ("/sbin/reboot", "/sbin/poweroff")
DISCOVERY_SECONDS = 60
ERASE_SECONDS = 1800


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
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


def shield_system_commands(arguments):
    """Runs this program again where the restart and shutdown commands are harmless: in a mount
    namespace of its own, with /bin/true in their places. Where that is not allowed only a
    virtual screen will do, on which nobody presses a button."""
    real = sorted({os.path.realpath(path) for path in SYSTEM_COMMANDS if os.path.exists(path)})
    if not real or os.environ.get("PRACTICE_SHIELDED"):
        return
    mounts = "".join(f"mount --bind /bin/true {path} && " for path in real)
    command = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
    shell = [*command, "sh", "-c", mounts + 'exec "$@"', "sh"]
    if subprocess.run([*shell, "true"], capture_output=True, check=False).returncode == 0:
        os.environ["PRACTICE_SHIELDED"] = "1"
        os.execvp(shell[0], [*shell, sys.executable, *sys.orig_argv[1:]])
    if not is_virtual(arguments):
        sys.exit("practice: the restart and shutdown commands cannot be replaced for the run "
                 "(unshare failed), so the buttons in the window would be real; use --virtual, "
                 "run it as root, or allow user namespaces")


class Log:
    """The program's log file, and what it tells of the run."""

    def __init__(self, path):
        self._path = path

    def text(self):
        return self._path.read_text(errors="replace") if self._path.exists() else ""

    def wait_for(self, pattern, seconds, what):
        return wait_until(lambda: re.search(pattern, self.text()), seconds, what)

    def ended_jobs(self):
        return len(re.findall(r"id: \d+: finished: ", self.text()))

    def is_over(self, drive):
        """Whether nothing more happens to the drive with this number: it was erased and
        formatted, or one of the two failed."""
        text = self.text()
        failed = rf"id: {drive}: (stdout: error: |finished: exitCode: [1-9]|finished: .*Status: 1)"
        return text.count(f"id: {drive}: finished: ") == 2 or re.search(failed, text) is not None

    def picture(self, image):
        """The picture that was made for a drive; None when it was not formatted."""
        start = re.search(rf"start: .*/format {re.escape(str(image))} (.*\.png)$", self.text(),
                          re.MULTILINE)
        return pathlib.Path(start.group(1)) if start else None


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


def checksum(path):
    digest = hashlib.sha256()
    with path.open("rb") as file:
        while chunk := file.read(1 << 22):
            digest.update(chunk)
    return digest.hexdigest()


def report_erased(images, log):
    is_good = True
    for image in images:
        picture = log.picture(image)
        if picture is None:
            wrong, facts = ["it was not formatted"], []
        else:
            try:
                wrong, facts = erased_drive.check(image, picture)
            except (ValueError, OSError, subprocess.CalledProcessError) as error:
                wrong, facts = [str(error)], []
        print(f"{image.name}: {'NOT ERASED' if wrong else 'erased and formatted'}")
        for line in wrong + facts:
            print(f"  {line}")
        is_good = is_good and not wrong
    return is_good


def report_unchanged(images, before, log):
    was_run = log.text().count("mode=read") == len(images) and log.ended_jobs() == 2 * len(images)
    if not was_run:
        print("the emulated run did not end for every drive")
    for image in images:
        is_same = checksum(image) == before[image]
        print(f"{image.name}: {'no byte changed' if is_same else 'CHANGED'}")
        was_run = was_run and is_same
    return was_run


def run_program(arguments, directory, images, log):
    display = None if is_virtual(arguments) else os.environ["DISPLAY"]
    with Processes() as processes:
        stage = Stage(processes, arguments.programs, directory, display, arguments.size)
        stage.start_disk_service({image: drive.description()
                                  for image, drive in zip(images, used_drives.DRIVES)})
        window = stage.start_program()
        if is_virtual(arguments):
            follow(log, window, stage.display, directory, arguments.emulate)
        else:
            print("The report comes when you close the window.")
            window.wait()


def main():
    arguments = parse_arguments()
    directory = pathlib.Path(WORK_DIRECTORY).resolve()
    shield_system_commands(arguments)
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir()
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
