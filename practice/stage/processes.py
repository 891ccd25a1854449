"""Programs that run beside the practice run and end with it."""

import ctypes
import os
import signal
import subprocess
import time

PR_SET_PDEATHSIG = 1  # <linux/prctl.h>


def _end_with_parent():
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def wait_until(condition, seconds, what):
    """Waits for a condition and returns its value; fails after so many seconds."""
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError(f"waited {seconds} s in vain: {what}")
        time.sleep(0.05)
    return value


class Processes:
    """Started programs; leaving the `with` block ends them, the last one first."""

    def __init__(self):
        self._running = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in reversed(self._running):
            process.terminate()
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()

    def start(self, command, environment=None, **options):
        process = subprocess.Popen([str(part) for part in command],
                                   env={**os.environ, **(environment or {})},
                                   preexec_fn=_end_with_parent, **options)
        self._running.append(process)
        return process

    def start_bus(self, log):
        """A private message bus; returns its address."""
        bus = self.start(["dbus-daemon", "--session", "--nofork", "--print-address"],
                         stdout=subprocess.PIPE, stderr=log, text=True)
        address = bus.stdout.readline().strip()
        if not address:
            raise RuntimeError("the private message bus did not start")
        return address

    def start_virtual_screen(self, size, log, *options):
        """An X server without a monitor; returns its display name."""
        read_end, write_end = os.pipe()
        self.start(["Xvfb", "-displayfd", write_end, "-screen", "0", f"{size}x24", "-nolisten",
                    "tcp", *options], pass_fds=[write_end], stderr=log)
        os.close(write_end)
        with os.fdopen(read_end) as number:
            display = number.readline().strip()
        if not display:
            raise RuntimeError("the virtual screen did not start")
        return f":{display}"
