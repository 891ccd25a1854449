"""program_test.py PROGRAMS: the built program, of that folder, on a screen and a bus of its own: it
is seen although the disk service hangs, starts no bus for the session, touches no drive during the
countdown, and leaves no driver behind when it is killed."""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

from practice.stage.private_system import PrivateSystem
from practice.stage.processes import Processes, wait_until
from practice.stage.program_log import DISCOVERY_SECONDS, Log

SIZE = 8 << 30  # takes the driver longer to write than it may live on
KILL_SECONDS = 2
# The discovery's ticks and the countdown's until 3 seconds are left, less what timers may hurry.
UNTIL_THREE_SECONDS = 17.5
PING = ["dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.UDisks",
        "/org/freedesktop/UDisks", "org.freedesktop.DBus.Peer.Ping"]


def start_hanging_service(system, image):
    """The disk service, which has its name on the bus and then stands still."""
    service = system.start_disk_service({image: "model=Used"})
    wait_until(lambda: subprocess.run(PING, env={**os.environ, **system.bus}, check=False,
                                      stderr=subprocess.DEVNULL).returncode == 0,
               10, "the disk service")
    service.send_signal(signal.SIGSTOP)
    return service


def watch_session_bus(directory):
    """Lets a program that would start a bus for the session make the file that is returned."""
    launched, launcher = directory / "launched", directory / "dbus-launch"
    launcher.write_text(f"#!/bin/sh\ntouch {launched}\n")
    launcher.chmod(0o755)
    os.environ.pop("DBUS_SESSION_BUS_ADDRESS", None)
    os.environ["PATH"] = f"{directory}:{os.environ['PATH']}"
    return launched


def state(image):
    now = image.stat()
    return now.st_mtime_ns, now.st_blocks


def check_kill(program, image):
    """Kills the program in the midst of erasing."""
    find_drivers = ["pgrep", "--full", f"device={image} mode=write"]
    wait_until(lambda: subprocess.run(find_drivers, check=False).returncode == 0, 30, "the driver")
    program.kill()
    wait_until(lambda: subprocess.run(find_drivers, check=False).returncode == 1, KILL_SECONDS,
               "the driver's end")


def check_program(programs, directory, processes):
    image, log = directory / "image", Log(directory / "log.txt")
    image.touch()
    os.truncate(image, SIZE)
    before = state(image)
    display = processes.start_virtual_screen("800x600", None, "-fbdir", directory)
    system = PrivateSystem(processes, programs, directory, display)
    launched = watch_session_bus(directory)
    service = start_hanging_service(system, image)
    program, start = system.start_program(), time.monotonic()

    screen = directory / "Xvfb_screen0"
    wait_until(lambda: any(screen.read_bytes()[-4096:]), 10, "the window")
    service.send_signal(signal.SIGCONT)
    assert not launched.exists()

    log.wait_for("begin erasing in 3 seconds", DISCOVERY_SECONDS, "the countdown")
    assert log.text().startswith("*** VantrellePlus ***\n")
    assert time.monotonic() - start > UNTIL_THREE_SECONDS, "the ticks come too fast"
    assert state(image) == before
    check_kill(program, image)
    assert "finished: " not in log.text()


with tempfile.TemporaryDirectory() as name, Processes() as processes:
    check_program(pathlib.Path(sys.argv[1]), pathlib.Path(name), processes)
