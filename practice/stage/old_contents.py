"""Image files of drives with old content of every kind: partitions, and on the whole drive file
systems, swap space, and members of larger volumes. All but "empty" hold used_drives.SECRET."""

import os
import struct
import zlib

from practice.stage import used_drives
from practice.stage.used_drives import MIB, SECRET, Partition, UsedDrive

PARTITIONS = {  # table, file systems with their shares of the drive
    "office": ("dos", {"vfat": 0.4, "ext4": 0.6}),
    "laptop": ("gpt", {"vfat": 0.4, "ext4": 0.6}),
    "photos": ("dos", {"vfat": 1}),
}
TOOLS = {
    "ntfs": ["mkfs.ntfs", "-q", "-Q", "-F"],
    "ext4": ["mkfs.ext4", "-q", "-F"],
    "swap": ["mkswap", "-q"],
    "luks": ["cryptsetup", "luksFormat", "-q", "--type", "luks2", "--pbkdf", "pbkdf2",
             "--pbkdf-force-iterations", "1000", "--key-file", __file__],
}
KINDS = [*PARTITIONS, *TOOLS, "hibernated", "lvm", "md", "empty"]


def make(path, kind, size_mib, sector_size=512):
    """Makes the image file; `kind` is one of KINDS."""
    if kind in PARTITIONS:
        make_partitions(path, *PARTITIONS[kind], size_mib, sector_size)
        return
    with path.open("wb") as image:
        image.truncate(size_mib * MIB)
    if kind in TOOLS:
        used_drives.run(*TOOLS[kind], path)
    elif kind == "hibernated":
        used_drives.run(*TOOLS["swap"], path)
        put(path, 4086, b"S1SUSPEND\0")  # kernel/power/swap.c: in the place of "SWAPSPACE2"
    elif kind == "lvm":
        put(path, 512, lvm_label(size_mib * MIB))
    elif kind == "md":
        put(path, 4096, md_superblock(size_mib * MIB // 512))
    if kind != "empty":
        put(path, size_mib * MIB - len(SECRET), SECRET)


def make_partitions(path, table, shares, size_mib, sector_size):
    partitions, start = [], 1
    for kind, share in shares.items():
        partitions.append(Partition(start, int((size_mib - 2) * share), kind, kind.upper()))
        start += partitions[-1].size_mib
    used_drives.make(UsedDrive(path.name, "", "", size_mib, sector_size, table,
                               tuple(partitions)), path.parent)


def put(path, offset, data):
    with path.open("r+b") as image:
        os.pwrite(image.fileno(), data, offset)


def lvm_label(size):
    """Of a physical volume without a volume group (lib/format_text/layout.h in LVM2); pvs(8)
    accepts it."""
    areas = struct.pack("<QQ", MIB, 0)  # the data area, to the end
    label = struct.pack("<I8s32sQ", 32, b"LVM2 001", b"p" * 32, size) + areas
    label = label.ljust(512 - 20, b"\0")
    checksum = zlib.crc32(label, 0xF597A6CF ^ 0xFFFFFFFF) ^ 0xFFFFFFFF
    return struct.pack("<8sQI", b"LABELONE", 1, checksum) + label


def md_superblock(sectors):
    """Of the only member of a RAID 1, version 1.2 (include/uapi/linux/raid/md_p.h in Linux);
    mdadm(8) accepts it."""
    first, used = 2048, sectors - 2048
    array = struct.pack("<4I16s32sQiIQII32x", 0xA92B4EFC, 1, 0, 0, b"u" * 16, b"office:0", 1, 1, 0,
                        used, 0, 1)
    device = struct.pack("<QQQQII16s8x", first, used, 8, 0, 0, 0, b"d" * 16)
    state, members = struct.pack("<QQQ", 1, 1, 2**64 - 1), struct.pack("<I32xI", 1, 0)
    words = struct.unpack("<65I", array + device + state + b"\0" * 4 + members[:-4] + b"\0" * 4)
    checksum = sum(words)
    checksum = ((checksum & 0xFFFFFFFF) + (checksum >> 32)) & 0xFFFFFFFF
    return array + device + state + struct.pack("<I", checksum) + members
