#!/usr/bin/env python3
"""The main job on image files: discovery, countdown, erasing, formatting, "Complete.".

Nothing of this computer is touched: the program sees a private message bus whose disk
service lists three image files and nothing else, and its restart and shutdown buttons lead
nowhere. Everything that is started ends with this run.
"""

import argparse
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys

import erased_drive
import used_drives
from processes import Processes, wait_until

WORK_DIRECTORY = "practice-run"
SYSTEM_COMMANDS = ("/sbin/reboot", "/sbin/poweroff")
DISCOVERY_SECONDS = 60
ERASE_SECONDS = 1800


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="the build folder")
    parser.add_argument("--emulate", action="store_true",
                        help="switch emulation on and prove that no byte changes")
    parser.add_argument("--virtual", action="store_true",
                        help="use a virtual screen also when there is a display")
    parser.add_argument("--size", metavar="WxH", help="fill a virtual screen of this size "
                        "(default: an 800x600 window on an 800x600 screen)")
    parser.add_argument("--keep", action="store_true", help="keep the image files")
    return parser.parse_args()


def shield_system_commands(directory):
    """Runs this program again where the restart and shutdown commands are harmless: in a mount
    namespace of its own, with /bin/true in their places."""
    if os.environ.get("PRACTICE_SHIELDED"):
        return
    real = sorted({os.path.realpath(path) for path in SYSTEM_COMMANDS if os.path.exists(path)})
    mounts = "".join(f'mount --bind /bin/true {path} && ' for path in real)
    command = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
    shell = [*command, "sh", "-c", mounts + 'exec "$@"', "sh"]
    if subprocess.run([*shell, "true"], capture_output=True, check=False).returncode != 0:
        sys.exit("practice: this system does not let the restart and shutdown commands be "
                 "replaced for the run (unshare failed); run it as root, or allow user "
                 "namespaces")
    os.environ["PRACTICE_SHIELDED"] = "1"
    os.execvp(shell[0], [*shell, sys.executable, *sys.argv])


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

    def pictures(self):
        """The picture of each drive, by its image file's path."""
        starts = re.findall(r"start: \S*/format (\S+?)(?:-emulate)? (\S+\.png)", self.text())
        return {device: pathlib.Path(picture) for device, picture in starts}


def screenshot(display, directory, name):
    path = directory / f"{name}.png"
    subprocess.run(["import", "-display", display, "-window", "root", path], check=True)
    print(f"  screenshot: {path}")


def switch_emulation_on(display):
    """By the keys of the hidden program menu."""
    for keys in ("alt+shift+m", "e"):
        subprocess.run(["xdotool", "key", "--delay", "100", keys],
                       env={**os.environ, "DISPLAY": display}, check=True)


def follow(log, display, directory, emulate):
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
    jobs = 2 * len(used_drives.DRIVES)  # erase and format
    wait_until(lambda: log.ended_jobs() >= jobs, ERASE_SECONDS, "the end of all jobs")
    wait_until(lambda: log.text().count("close()") >= jobs, ERASE_SECONDS, "the last row")
    screenshot(display, directory, "4-complete")


def checksum(path):
    digest = hashlib.sha256()
    with path.open("rb") as file:
        while chunk := file.read(1 << 22):
            digest.update(chunk)
    return digest.hexdigest()


def report_erased(images, log):
    pictures = log.pictures()
    is_good = True
    for image in images:
        if str(image) not in pictures:
            wrong, facts = ["it was not formatted"], []
        else:
            try:
                wrong, facts = erased_drive.check(image, pictures[str(image)])
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
    binaries = arguments.build.resolve() / "bin"
    library = directory / "lib"
    library.mkdir()
    for name in ("driver", "format", "boot"):
        (library / name).symlink_to(binaries / "lib" / name)
    is_virtual = arguments.virtual or arguments.emulate or not os.environ.get("DISPLAY")
    with Processes() as processes, (directory / "messages.txt").open("w") as messages:
        bus = {"DBUS_SYSTEM_BUS_ADDRESS": processes.start_bus()}
        options = []
        for image, drive in zip(images, used_drives.DRIVES):
            options += ["--image", f"{image},model={drive.model},serial={drive.serial},"
                                   f"sector-size={drive.sector_size}"]
        processes.start([binaries / "diskservice", *options], bus, stderr=messages)
        display = os.environ.get("DISPLAY")
        if is_virtual:
            display = processes.start_virtual_screen(arguments.size or "800x600", messages)
        # The program skips two characters after "lib=".
        program = [binaries / "vantrelleplus", f"lib=..{library}", f"dbg={directory}/log.txt"]
        program += ["desktop"] if arguments.size else []
        window = processes.start(program, {**bus, "DISPLAY": display, "QT_QPA_PLATFORM": "xcb"},
                                 stderr=messages)
        if is_virtual:
            follow(log, display, directory, arguments.emulate)
        else:
            print("The report comes when you close the window.")
            window.wait()


def main():
    arguments = parse_arguments()
    directory = pathlib.Path(WORK_DIRECTORY).resolve()
    shield_system_commands(directory)
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
    if not arguments.keep:
        for image in images:
            image.unlink()
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
