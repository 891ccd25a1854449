"""The drives of an emulated computer, told apart on the screen by their sizes."""

import dataclasses
import hashlib
import pathlib
import random
import subprocess

from practice.stage import old_contents
from practice.stage.used_drives import MIB

BAD_SECTOR = 77777
CONTROLLERS = ["-device", "qemu-xhci,id=usb", "-device", "ahci,id=sata", "-device", "sdhci-pci"]
SECTORS_4096 = ",logical_block_size=4096,physical_block_size=4096"
BUSES = {  # the emulator's device for a drive called {0}, on port {1}
    "ide": "ide-hd,bus=ide.{1},drive={0},serial=S-{0}",
    "ahci": "ide-hd,bus=sata.{1},drive={0},serial=S-{0}",
    "virtio": "virtio-blk-pci,drive={0},serial=S-{0}",
    "usb": "usb-storage,bus=usb.0,drive={0},id={0},serial=S-{0}",
    "sd": "sd-card,drive={0}",
    "nvme": "nvme,drive={0},serial=S-{0}" + SECTORS_4096,
}


@dataclasses.dataclass(eq=False)
class Drive:
    """`content` is one of old_contents.KINDS; `fault` is "", "read-only" or "bad" (one sector
    cannot be written)."""
    bus: str
    content: str
    size_mib: int
    sector_size: int = 512
    fault: str = ""
    port: int = 0
    mib_per_second: int = 0  # with a limit there is time to do something while it is erased
    file: pathlib.Path = pathlib.Path()

    def make(self, file):
        self.file = file
        old_contents.make(file, self.content, self.size_mib, self.sector_size)

    def __str__(self):
        return f"{self.file.name} ({self.bus}, {self.content}, {self.size_text()})"

    def size_text(self):
        """As the screen shows it."""
        power = len(str(self.size_mib * MIB)[:-1]) // 3
        return f"{self.size_mib * MIB // 1000**power}{['', 'KB', 'MB', 'GB', 'TB'][power]}"

    def backend(self):
        """The emulator's options for the image, not attached to anything yet."""
        file = f"file.filename={self.file}"
        if self.fault == "bad":
            file = (f"file.driver=blkdebug,file.image.driver=file,file.image.filename={self.file},"
                    "file.inject-error.0.event=none,file.inject-error.0.iotype=write,"
                    f"file.inject-error.0.sector={BAD_SECTOR}")
        read_only = "on" if self.fault == "read-only" else "off"
        return ["-drive", f"if=none,id={self.file.name},format=raw,{file},readonly={read_only},"
                          f"throttling.bps-write={self.mib_per_second * MIB}"]

    def device(self):
        return BUSES[self.bus].format(self.file.name, self.port)

    def options(self):
        return [*self.backend(), "-device", self.device()]

    def digest(self):
        """Of all bytes; zeros are made holes of the image file first, and those are not read."""
        subprocess.run(["fallocate", "--dig-holes", self.file], check=True)
        archive = subprocess.run(["tar", "--create", "--sparse", "--mtime=@0", "--absolute-names",
                                  self.file], capture_output=True, check=True).stdout
        return hashlib.sha256(archive).digest()


def one_of_each(seed, size_mib):
    """A drive on each bus, and two with faults. What lies on which, and how large they are, is
    drawn by `seed`; a card's size has to be a power of two."""
    draw = random.Random(seed)
    contents = draw.sample(sorted(set(old_contents.KINDS) - {"laptop", "empty"}), 7)
    sizes = draw.sample([size for size in range(size_mib, size_mib + 64) if size != 128], 6)
    drives = [Drive(bus, contents.pop(), sizes.pop()) for bus in ("ide", "ahci", "virtio", "usb")]
    return [*drives, Drive("sd", contents.pop(), 128),
            Drive("nvme", "laptop", size_mib + 300, 4096),
            Drive("virtio", contents.pop(), sizes.pop(), fault="read-only"),
            Drive("ide", contents.pop(), sizes.pop(), fault="bad", port=1)]
