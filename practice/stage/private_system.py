"""What the program sees in a run on image files: a screen, a private message bus, and a disk
service that lists the images and nothing else."""

import os
import subprocess


class PrivateSystem:
    """Starts things through `processes`, which ends them. Messages of all of them are collected
    in `directory`, where the program's log and library directory are, too. `bus` is what a
    program's environment needs for the private bus."""

    def __init__(self, processes, programs, directory, display=None, size=None):
        """`programs` is the folder of the built or installed program; `display` is an X display
        to use, else a virtual one is made; `size` (WxH) is that of the virtual screen, which the
        program then fills."""
        self._processes = processes
        self._binaries = programs.resolve()
        self._directory = directory
        self._fills_screen = size is not None
        self._messages = (directory / "messages.txt").open("w")
        self.bus = {"DBUS_SYSTEM_BUS_ADDRESS": processes.start_bus(self._messages)}
        self.display = display or processes.start_virtual_screen(size or "800x600",
                                                                 self._messages)

    def start_disk_service(self, images):
        """The service with image files and, for each, what it tells of it
        (vantrelleplus-diskservice(8)); returns its process."""
        options = []
        for image, description in images.items():
            file = str(image).replace("\\", "\\\\").replace(",", "\\,")
            options += ["--image", f"{file},{description}"]
        return self._processes.start([self._binaries / "diskservice", *options], self.bus,
                                     stderr=self._messages)

    def start_program(self):
        """The program, with a library directory of its own for the pictures that it makes."""
        library = self._directory / "lib"
        library.mkdir(exist_ok=True)
        for name in ("driver", "format", "boot"):
            if not (library / name).exists():
                (library / name).symlink_to(self._binaries / "lib" / name)
        # The program skips two characters after "lib=".
        command = [self._binaries / "vantrelleplus", f"lib=..{library}",
                   f"dbg={self._directory}/log.txt"]
        command += ["desktop"] if self._fills_screen else []
        return self._processes.start(command, {**self.bus, "DISPLAY": self.display,
                                               "QT_QPA_PLATFORM": "xcb"}, stderr=self._messages)


def press(display, *keys):
    """Presses keys or key combinations, by their X names, one after the other."""
    for key in keys:
        subprocess.run(["xdotool", "key", "--delay", "100", key],
                       env={**os.environ, "DISPLAY": display}, check=True)


def screenshot(display, directory, name):
    """Saves the whole screen as a PNG file."""
    path = directory / f"{name}.png"
    subprocess.run(["import", "-display", display, "-window", "root", path], check=True)
    print(f"  screenshot: {path}")
