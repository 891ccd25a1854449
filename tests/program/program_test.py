"""The built program on a screen and a bus of its own: it is seen although the disk service hangs,
starts no bus for the session, touches no drive during the countdown, and leaves no driver behind
when it is killed."""

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

with tempfile.TemporaryDirectory() as name, Processes() as processes:
    directory = pathlib.Path(name)
    image, log = directory / "image", Log(directory / "log.txt")
    image.touch()
    os.truncate(image, SIZE)
    before = image.stat()
    display = processes.start_virtual_screen("800x600", None, "-fbdir", name)
    system = PrivateSystem(processes, pathlib.Path(sys.argv[1]), directory, display)
    launcher = directory / "dbus-launch"
    launcher.write_text(f"#!/bin/sh\ntouch {directory}/launched\n")
    launcher.chmod(0o755)
    os.environ.pop("DBUS_SESSION_BUS_ADDRESS", None)
    os.environ["PATH"] = f"{directory}:{os.environ['PATH']}"
    service = system.start_disk_service({image: "model=Used"})
    ping = ["dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.UDisks",
            "/org/freedesktop/UDisks", "org.freedesktop.DBus.Peer.Ping"]
    wait_until(lambda: not subprocess.run(ping, env={**os.environ, **system.bus},
                                          stderr=subprocess.DEVNULL, check=False).returncode,
               10, "the disk service")
    service.send_signal(signal.SIGSTOP)
    program, start = system.start_program(), time.monotonic()

    screen = directory / "Xvfb_screen0"
    wait_until(lambda: any(screen.read_bytes()[-4096:]), 10, "the window")
    service.send_signal(signal.SIGCONT)
    assert not (directory / "launched").exists()

    log.wait_for("begin erasing in 3 seconds", DISCOVERY_SECONDS, "the countdown")
    assert time.monotonic() - start > UNTIL_THREE_SECONDS, "the ticks come too fast"
    now = image.stat()
    assert (now.st_mtime_ns, now.st_blocks) == (before.st_mtime_ns, before.st_blocks)

    drivers = ["pgrep", "--full", f"device={image} mode=write"]
    wait_until(lambda: subprocess.run(drivers, check=False).returncode == 0, 30, "the driver")
    program.kill()
    wait_until(lambda: subprocess.run(drivers, check=False).returncode == 1, KILL_SECONDS,
               "the driver's end")
    assert "finished: " not in log.text()
