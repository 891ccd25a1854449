"""An emulated PC (QEMU, in software) that boots the medium: started with drives of any kind,
watched through its screen and the appliance's log, and worked with by keys."""

import dataclasses
import json
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time

HERE = pathlib.Path(__file__).parent
OVMF = "/usr/share/OVMF/"
UEFI32_FLASH = ["-global", "driver=cfi.pflash01,property=secure,value=on"]
FIRMWARES = {  # machine, more options, flash image, its variables
    "bios": ("pc", [], None, None),
    "uefi64": ("q35", [], "OVMF_CODE_4M.fd", "OVMF_VARS_4M.fd"),
    "uefi32": ("q35,smm=on", UEFI32_FLASH, "OVMF32_CODE_4M.secboot.fd", "OVMF32_VARS_4M.fd"),
}
LOG_PORT = ["-device", "virtio-serial", "-device", "virtserialport,chardev=log,name=vantrelle.log"]


@dataclasses.dataclass
class Screen:
    """What the screen shows; `pixels` has three bytes for each, row by row from the top."""
    width: int
    height: int
    pixels: bytes

    @classmethod
    def read(cls, path):
        """From a binary PPM file, as the emulator writes it."""
        magic, size, depth, pixels = path.read_bytes().split(b"\n", 3)
        if magic != b"P6" or depth != b"255":
            raise ValueError(f"{path}: not a binary PPM file with 8 bits a colour")
        width, height = map(int, size.split())
        return cls(width, height, pixels)

    def pixel(self, x, y):
        start = 3 * (y * self.width + x)
        return tuple(self.pixels[start:start + 3])


class Machine:
    """Runs from the start of the `with` block to its end. `firmware` is a key of FIRMWARES;
    `options` are more of the emulator's, among them the drives (see `drive`)."""

    def __init__(self, options, firmware="bios", memory_mib=512, processors=2):
        self._folder = pathlib.Path(tempfile.mkdtemp(prefix="emulator-"))
        self._log = self._folder / "log"
        machine, more, code, variables = FIRMWARES[firmware]
        command = ["qemu-system-x86_64", "-accel", "tcg", "-machine", machine, "-m", str(memory_mib),
                   "-smp", str(processors), "-vga", "std", "-display", "none", *more, *LOG_PORT,
                   "-chardev", f"file,id=log,path={self._log}",
                   "-qmp", f"unix:{self._folder}/qmp,server,wait=off"]
        if code:
            command += drive("pflash", OVMF + code, "readonly=on")
            command += drive("pflash", OVMF + variables, "snapshot=on")
        if "-netdev" not in options:
            command += ["-nic", "none"]
        self.started = time.monotonic()
        self.process = subprocess.Popen([*command, *map(str, options)])
        self._connect()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self._socket.close()
        shutil.rmtree(self._folder)

    def _connect(self):
        self._socket = socket.socket(socket.AF_UNIX)
        self._wait(lambda: (self._folder / "qmp").exists(), 10, "the emulator's control socket")
        self._socket.connect(str(self._folder / "qmp"))
        self._replies = self._socket.makefile("rb")
        self.order("qmp_capabilities")

    def _wait(self, condition, seconds, what):
        deadline = time.monotonic() + seconds
        while not (value := condition()):
            if self.process.poll() is not None:
                raise RuntimeError(f"the emulator ended, waiting for {what}")
            if time.monotonic() > deadline:
                raise TimeoutError(f"waited {seconds} s in vain for {what}")
            time.sleep(0.25)
        return value

    def seconds(self):
        """Since the power was switched on."""
        return time.monotonic() - self.started

    def order(self, command, **arguments):
        """Carries out a QMP command and returns its answer; events are passed over."""
        names = {name.replace("_", "-"): value for name, value in arguments.items()}
        self._socket.sendall(json.dumps({"execute": command, "arguments": names}).encode())
        for line in self._replies:
            reply = json.loads(line)
            if "error" in reply:
                raise RuntimeError(f"{command}: {reply['error']['desc']}")
            if "return" in reply:
                return reply["return"]
        raise RuntimeError(f"{command}: the emulator ended")

    def press(self, *combinations):
        """Presses keys one after the other, by QEMU's names: press("alt-shift-m", "ret")."""
        for combination in combinations:
            keys = [{"type": "qcode", "data": key} for key in combination.split("-")]
            self.order("send-key", keys=keys)
            time.sleep(0.3)  # each key is down for 0.1 s

    def screen(self, keep=None):
        """The screen as it is now; also saved as the PPM file `keep`."""
        path = pathlib.Path(keep) if keep else self._folder / "screen.ppm"
        self.order("screendump", filename=str(path.absolute()))
        return Screen.read(path)

    def wait_for_screen(self, matches, seconds, what):
        """Waits for a screen for which `matches` is true, and returns it."""
        return self._wait(lambda: matches(screen := self.screen()) and screen, seconds, what)

    def log(self):
        """The appliance's log so far; empty until the system has started."""
        return self._log.read_text(errors="replace") if self._log.exists() else ""

    def wait_for_log(self, text, seconds, times=1):
        self._wait(lambda: self.log().count(text) >= times, seconds, f"“{text}” in the log")

    def wait_for_end(self, seconds):
        """Until the emulator ends by itself: the guest was switched off (or restarted, with the
        option -no-reboot). Returns its exit code."""
        return self.process.wait(seconds)


def drive(interface, file, *settings):
    """Options that attach an image file; with interface "none", a -device has to follow."""
    return ["-drive", ",".join([f"if={interface}", "format=raw", f"file={file}", *settings])]


def from_iso(iso):
    """Options that boot the medium as a disc."""
    return ["-cdrom", iso, "-boot", "d"]


def from_stick(iso):
    """Options that boot the medium as a USB stick, which can be pulled: device id "stick"."""
    return ["-device", "qemu-xhci,id=usb", *drive("none", iso, "id=medium", "readonly=on"),
            "-device", "usb-storage,bus=usb.0,drive=medium,id=stick,bootindex=0"]


def from_kernel(folder, arguments=""):
    """Options that start the kernel and initial RAM disk in `folder` without a boot loader."""
    return ["-kernel", folder / "vmlinuz", "-initrd", folder / "initrd.img",
            "-append", f"quiet loglevel=3 rootfstype=ramfs noresume "
            f"cryptomgr.notests noisapnp mitigations=off libata.ignore_hpa=1 {arguments}"]


def add_files(medium, extra, target):
    """Makes the folder `target` for from_kernel(): that of the folder `medium`, with the files
    in the folder `extra` laid over the running system. Start it with the argument rdinit=/start.
    This is how a test gets a shell or a broken program into the system."""
    start = (HERE / "init").read_text().replace(
        "exec switch_root", "cp -a /extra/. /layer/system/\nexec switch_root")
    with tempfile.TemporaryDirectory() as folder:
        tree = pathlib.Path(folder)
        shutil.copytree(extra, tree / "extra", symlinks=True)
        (tree / "start").write_text(start)
        (tree / "start").chmod(0o755)
        names = "\n".join(str(path.relative_to(tree)) for path in sorted(tree.rglob("*")))
        archive = subprocess.run(["cpio", "--create", "--format=newc", "--quiet"], cwd=tree,
                                 input=names.encode(), capture_output=True, check=True).stdout
    target.mkdir(exist_ok=True)
    shutil.copy(medium / "vmlinuz", target)
    (target / "initrd.img").write_bytes((medium / "initrd.img").read_bytes() + archive)


def shows_window(screen):
    """Whether the program's window fills the screen: its blue-grey stripes in the corners and its
    bright panel in the middle, which no console, boot menu or empty screen has."""
    right, bottom = screen.width - 1, screen.height - 1
    corners = [screen.pixel(x, y) for x in (0, right) for y in (0, bottom)]
    panel = screen.pixel(screen.width // 2, screen.height // 2 - 200)
    return (all(max(map(abs, (r - 90, g - 106, b - 123))) < 15 for r, g, b in corners)
            and min(panel) > 200)
