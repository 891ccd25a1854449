"""Image files that look like used drives: partition tables, file systems, files in them."""

import dataclasses
import pathlib
import subprocess

MIB = 1 << 20

# Stands in every file of the old content; none of it may be found afterwards.
SECRET = b"PRIVATE-CUSTOMER-RECORD "


@dataclasses.dataclass(frozen=True)
class Partition:
    """A partition to make: place and size in MiB, file system "vfat" or "ext4"."""

    start_mib: int
    size_mib: int
    file_system: str
    label: str


@dataclasses.dataclass(frozen=True)
class UsedDrive:
    """A drive to make. The names are what the disk service shows of it."""

    file_name: str
    model: str
    serial: str
    size_mib: int
    sector_size: int
    table: str  # "dos" or "gpt"
    partitions: tuple[Partition, ...]

    def description(self):
        """What the disk service is told of it."""
        return f"model={self.model},serial={self.serial},sector-size={self.sector_size}"


DRIVES = (
    UsedDrive(
        "office", "Practice Disk 384", "PRACTICE-0001", 384, 512, "dos",
        (Partition(1, 100, "vfat", "BOOT"), Partition(101, 282, "ext4", "office")),
    ),
    UsedDrive(
        "laptop", "Practice SSD 768", "PRACTICE-0002", 768, 4096, "gpt",
        (Partition(1, 300, "vfat", "EFI"), Partition(301, 400, "ext4", "home")),
    ),
    UsedDrive(
        "camera", "Practice USB Stick 1536", "PRACTICE-0003", 1536, 512, "dos",
        (Partition(1, 1534, "vfat", "PHOTOS"),),
    ),
)


def run(*command, text_input=None):
    """Runs a tool quietly; its messages are shown when it fails."""
    done = subprocess.run([str(part) for part in command], input=text_input, text=True,
                          capture_output=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{command[0]} failed: {done.stderr.strip() or done.stdout.strip()}")


def write_table(image, drive):
    """The partition table. fdisk is the one that can be told of 4096-byte sectors."""
    commands = ["o" if drive.table == "dos" else "g"]
    per_mib = MIB // drive.sector_size
    for number, partition in enumerate(drive.partitions, start=1):
        first = partition.start_mib * per_mib
        last = first + partition.size_mib * per_mib - 1
        kind = ["p"] if drive.table == "dos" else []
        commands += ["n", *kind, str(number), str(first), str(last)]
    run("fdisk", "--wipe", "always", "--sector-size", drive.sector_size, image,
        text_input="\n".join([*commands, "w", ""]))


def write_old_files(folder):
    """A folder of recognisable files, for the file systems to hold."""
    for number in range(8):
        name = folder / f"record{number}.txt"
        name.write_bytes((SECRET + b"%d\n" % number) * 20000)
    return sorted(folder.iterdir())


def make_vfat(image, drive, partition, files):
    offset = partition.start_mib * MIB
    run("mkfs.fat", "-S", drive.sector_size, "-n", partition.label,
        "--offset", offset // drive.sector_size, image, partition.size_mib * 1024)
    run("mcopy", "-i", f"{image}@@{offset}", *files, "::")


def make_ext4(image, drive, partition, folder):
    run("mkfs.ext4", "-q", "-F", "-b", 4096, "-L", partition.label, "-d", folder,
        "-E", f"offset={partition.start_mib * MIB}", image, f"{partition.size_mib}M")


def make(drive, directory):
    """Makes the image of one drive in `directory` and returns its path."""
    image = pathlib.Path(directory) / drive.file_name
    with image.open("wb") as file:
        file.truncate(drive.size_mib * MIB)
        file.seek(-len(SECRET), 2)
        file.write(SECRET)  # the very last bytes of the drive count as well
    write_table(image, drive)
    folder = pathlib.Path(directory) / "old-files"
    folder.mkdir(exist_ok=True)
    files = write_old_files(folder)
    for partition in drive.partitions:
        if partition.file_system == "vfat":
            make_vfat(image, drive, partition, files)
        else:
            make_ext4(image, drive, partition, folder)
    return image
