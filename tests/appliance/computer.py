"""An emulated computer whose screen is read as a person reads it."""

import os
import re
import subprocess
import time

from appliance import emulator

OPTIONS = {"capture_output": True, "check": True, "env": {**os.environ, "OMP_THREAD_LIMIT": "1"}}


def read_picture(picture, *changes):
    """The lines of text in a picture file, after `changes` by convert(1)."""
    grey = subprocess.run(["convert", picture, "-background", "white", "-flatten", "-colorspace",
                           "gray", *changes, "-resize", "300%", "pgm:-"], **OPTIONS)
    read = subprocess.run(["tesseract", "-", "-", "--psm", "6"], input=grey.stdout, **OPTIONS)
    return "\n".join(line for line in read.stdout.decode().splitlines() if line.strip())


class Computer(emulator.Machine):
    """Keeps pictures of its screen in `folder`. `unplugged` drives are not attached yet."""

    def __init__(self, folder, medium, drives, unplugged=(), firmware="bios"):
        options = [option for drive in drives for option in drive.options()]
        options += [option for drive in unplugged for option in drive.backend()]
        super().__init__([*medium, *options], firmware)
        self._pictures = folder

    def read(self, name="now"):
        """All text on the screen, whose picture is kept under the name."""
        self.screen(self._pictures / "screen.ppm")
        subprocess.run(["convert", "screen.ppm", f"{name}.png"], cwd=self._pictures, check=True)
        return read_picture(self._pictures / f"{name}.png")

    def wait_for(self, pattern, seconds, name="now"):
        """Until the text on the screen matches; returns the text."""
        deadline = time.monotonic() + seconds
        while not re.search(pattern, text := self.read(name)):
            if time.monotonic() > deadline:
                raise TimeoutError(f"waited {seconds} s for “{pattern}” on the screen: {text}")
        return text

    def wait_for_window(self):
        self.wait_for_screen(emulator.shows_window, 300, "the program's window")
        print(f"  the window is on the screen after {self.seconds():.0f} s", flush=True)

    def wait_for_countdown(self):
        """Returns the text. The countdown's is the only red one, which is seen at once."""
        def shows_red(screen):
            left, y = screen.width // 2 - 159, screen.height // 2 - 122
            pixels = (screen.pixel(x, y) for x in range(left, left + 280))
            return any(red - green > 100 for red, green, _ in pixels)
        self.wait_for_screen(shows_red, 200, "the countdown")
        return self.read("countdown")

    def bars(self):
        """What the drives' bars say, by the drives' sizes."""
        screen = self.screen(picture := self._pictures / "screen.ppm")
        left, list_top = screen.width // 2 - 158, screen.height // 2 - 108
        border = "".join("x" if min(screen.pixel(left, y)) < 230 else " "
                         for y in range(list_top, list_top + 266))
        bars = {}
        for bar in re.finditer("x{18,22}", border):
            top = list_top + bar.start() + 2
            # The letters are white on the filled part and black on the rest.
            filled = next((x for x in range(3, 97) if screen.pixel(left + x, top)[0] > 200), 97)
            white, black = f"{filled - 2}x16+{left + 2}", f"{98 - filled}x16+{left + filled}"
            size = read_picture(picture, "-crop", f"250x20+{left + 102}+{top - 2}").split(" /")[0]
            text = read_picture(
                picture, "(", "-clone", "0", "-crop", f"{white}+{top}", "-threshold", "85%",
                "-negate", ")", "(", "-clone", "0", "-crop", f"{black}+{top}", "-threshold", "50%",
                ")", "-delete", "0", "+append")
            bars[size] = " ".join(re.findall("[A-Z]{4,}|[0-9]+%", text))  # not the bar's edge
        return bars

    def wait_for_complete(self, seconds):
        """Closes the message boxes of drives that fail. Returns what they said, and bars()."""
        said = ""
        while "failed:" in self.wait_for(r"failed:|Complete\.", seconds, "complete"):
            said += " ".join(self.read(f"message-{said.count('failed:')}").split()) + "\n"
            self.press("ret")
        bars = self.bars()
        print(f"  complete after {self.seconds():.0f} s: {bars}\n  {said}", flush=True)
        return said, bars
