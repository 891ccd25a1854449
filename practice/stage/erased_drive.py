"""Looks at the image of an erased and formatted drive, without using any of the product."""

import struct
import subprocess

from practice.stage.used_drives import SECRET

SECTOR = 512
PARTITION_START = 1 << 20
PATTERN = b"VANTRELLE"
CHUNK = 1 << 20

LABEL = "ERASED"
FILES = {"picture.png", "EFI/BOOT/BOOTX64.EFI", "EFI/BOOT/BOOTIA32.EFI"}


class Fat32:
    """The places of a FAT32 file system (Microsoft, fatgen103), in its own sectors from
    the start of the drive."""

    def __init__(self, image):
        image.seek(PARTITION_START)
        boot = image.read(SECTOR)
        if boot[510:] != b"\x55\xaa" or boot[82:90] != b"FAT32   ":
            raise ValueError("there is no FAT32 file system at 1 MiB")
        self.sector_size, self.cluster_sectors, reserved, fats = struct.unpack_from("<HBHB", boot, 11)
        total, fat_sectors = struct.unpack_from("<II", boot, 32)
        self.start = PARTITION_START // self.sector_size
        self.end = self.start + total
        self.data = self.start + reserved + fats * fat_sectors
        image.seek((self.start + reserved) * self.sector_size)
        table = image.read(fat_sectors * self.sector_size)
        clusters = (self.end - self.data) // self.cluster_sectors
        self.entries = struct.unpack_from(f"<{clusters + 2}I", table)

    def used_ranges(self):
        """Sectors that belong to files and directories, as (first, count)."""
        for number, entry in enumerate(self.entries[2:]):
            if entry & 0x0FFFFFFF:
                yield self.data + number * self.cluster_sectors, self.cluster_sectors


def pattern_sector(sector_size=SECTOR):
    """A sector full of the pattern."""
    return (PATTERN * (sector_size // len(PATTERN) + 1))[:sector_size]


def foreign_sectors(image, size, allowed, sector_size=SECTOR):
    """Sectors that hold neither the pattern nor are in `allowed`, as (count, first). The last
    one may be a part of a sector. The pattern starts anew in each."""
    count, first = 0, None
    expected_sector = pattern_sector(sector_size)
    expected_chunk = expected_sector * (CHUNK // sector_size)
    image.seek(0)
    for start in range(0, size, CHUNK):
        chunk = image.read(CHUNK)
        if chunk == expected_chunk[:len(chunk)]:
            continue
        for offset in range(0, len(chunk), sector_size):
            sector = chunk[offset:offset + sector_size]
            number = (start + offset) // sector_size
            if sector != expected_sector[:len(sector)] and number not in allowed:
                count += 1
                first = number if first is None else first
    return count, first


def secrets_left(image):
    """Whether any of the old content is anywhere on the drive."""
    image.seek(0)
    tail = b""
    while chunk := image.read(1 << 22):
        if SECRET in tail + chunk:
            return True
        tail = chunk[-len(SECRET):]
    return False


def mtools(tool, image, *arguments):
    command = [tool, *arguments[:-1], "-i", f"{image}@@{PARTITION_START}", arguments[-1]]
    return subprocess.run(command, capture_output=True, check=True).stdout


def files_of(image):
    listing = mtools("mdir", image, "-b", "-/", "::").decode()
    names = {line.removeprefix("::/") for line in listing.splitlines()}
    return {name for name in names if name and not name.endswith("/")}


def check(image_path, picture, sector_size=SECTOR):
    """What is wrong with an erased drive, as a list of sentences, and facts to report.
    `picture` is the PNG file that the program made for it; `sector_size` is the drive's."""
    wrong, facts = [], []
    size = image_path.stat().st_size
    with image_path.open("rb") as image:
        table = image.read(SECTOR)
        fat = Fat32(image)
        if fat.sector_size != sector_size:
            wrong.append(f"the file system has sectors of {fat.sector_size} bytes")
        if table[510:] != b"\x55\xaa" or table[446] != 0x80 or table[450] != 0x0C:
            wrong.append("the partition table has no active FAT32 partition")
        allowed = set(range(fat.data))
        for first, count in fat.used_ranges():
            allowed.update(range(first, first + count))
        count, first = foreign_sectors(image, size, allowed, sector_size)
        if count:
            wrong.append(f"{count} sectors are not erased, the first is {first}")
        if secrets_left(image):
            wrong.append("old content is left")
        sectors = size // sector_size
        facts.append(f"{sectors - len(allowed)} of {sectors} sectors hold the "
                     f"pattern, the rest are the new partition's own")
    label = mtools("mlabel", image_path, "-s", "::").decode().strip()
    if LABEL not in label:
        wrong.append(f"the volume label is wrong: {label}")
    files = files_of(image_path)
    if not FILES <= files:
        wrong.append(f"files are missing: {', '.join(sorted(FILES - files))}")
    elif mtools("mtype", image_path, "::/picture.png") != picture.read_bytes():
        wrong.append("the picture on the partition is not the one that was made")
    facts.append(f"FAT32 partition {LABEL}: {', '.join(sorted(files))}")
    return wrong, facts
