"""measure.py MEDIUM REPORT [--runs N]: boots the medium in the folder MEDIUM in an emulator in
every way it can be started, and writes how long each takes, and how much memory it needs, into
the file REPORT. Needs neither root nor KVM."""

import argparse
import datetime
import os
import pathlib
import shutil
import statistics
import subprocess
import tempfile

from appliance import emulator

HERE = pathlib.Path(__file__).parent
DEADLINE_S = 240
MEMORIES_MIB = (256, 224, 192, 160, 128)  # tried one after the other until one is too small
TICKS = os.sysconf("SC_CLK_TCK")


def netboot_folder(folder, medium):
    """What docs/netboot.md puts on the server."""
    subprocess.run(["grub-mknetdir", f"--net-directory={folder}"], check=True, capture_output=True)
    shutil.copy(HERE / "netboot/grub.cfg", folder / "boot/grub")
    for name in ("vmlinuz", "initrd.img"):
        shutil.copy(medium / name, folder)
    return folder


def from_network(folder, loader):
    """Options that boot from the emulator's own DHCP and TFTP server."""
    return ["-netdev", f"user,id=net,tftp={folder},bootfile=/boot/grub/{loader}",
            "-device", "virtio-net-pci,netdev=net,bootindex=0"]


def ways(medium, network):
    """(what it is called, options, firmware, memory) of each way to start."""
    iso = medium / "vantrelleplus.iso"
    kernel = emulator.from_kernel(medium)
    return [
        ("kernel and RAM disk, no boot loader", kernel, "bios", 512),
        ("the same, simple graphics", emulator.from_kernel(medium, "nomodeset"), "bios", 512),
        ("disc, BIOS", emulator.from_iso(iso), "bios", 512),
        ("disc, BIOS", emulator.from_iso(iso), "bios", 256),
        ("stick, BIOS", emulator.from_stick(iso), "bios", 512),
        ("stick, UEFI 64 bit", emulator.from_stick(iso), "uefi64", 512),
        ("stick, UEFI 32 bit", emulator.from_stick(iso), "uefi32", 512),
        ("network, BIOS", from_network(network, "i386-pc/core.0"), "bios", 512),
        ("network, UEFI 64 bit", from_network(network, "x86_64-efi/core.efi"), "uefi64", 512),
    ]


def processor_seconds(process):
    """User and system time so far, proc(5)."""
    fields = pathlib.Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def boot(options, firmware, memory_mib):
    """Seconds from power-on to the window: on the clock, and of processor time."""
    with emulator.Machine(options, firmware, memory_mib) as machine:
        machine.wait_for_screen(emulator.shows_window, DEADLINE_S, "the window")
        return machine.seconds(), processor_seconds(machine.process)


def row(name, options, firmware, memory_mib, runs):
    times = [boot(options, firmware, memory_mib) for _ in range(runs)]
    clock, processor = (statistics.median(column) for column in zip(*times))
    worst = max(clock for clock, _ in times)
    print(f"{name}: {clock:.0f} s, at most {worst:.0f} s, {processor:.0f} s of processor time",
          flush=True)
    return f"| {name} | {memory_mib} | {clock:.0f} | {worst:.0f} | {processor:.0f} |"


def least_memory(medium):
    works = None
    for memory_mib in MEMORIES_MIB:
        try:
            boot(emulator.from_kernel(medium), "bios", memory_mib)
        except (TimeoutError, RuntimeError):
            break
        works = memory_mib
    return works


def sizes(medium):
    return [f"| {name} | {(medium / name).stat().st_size / 2**20:.1f} |"
            for name in ("vantrelleplus.iso", "vmlinuz", "initrd.img")]


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.split("\n")[0]


def conditions(runs):
    load = ", ".join(f"{value:.1f}" for value in os.getloadavg())
    return (f"Commit {first_line('git', 'rev-parse', '--short', 'HEAD')}, "
            f"{datetime.date.today()}, {first_line('qemu-system-x86_64', '--version')}, software "
            f"emulation of two processors on a machine with {os.cpu_count()}; its load average "
            f"before: {load}. {runs} runs each.")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("medium", type=pathlib.Path)
    parser.add_argument("report", type=pathlib.Path)
    parser.add_argument("--runs", type=int, default=3)
    arguments = parser.parse_args()
    lines = ["# Figures of the boot medium", "", "Written by `scripts/measure-iso`. "
             + conditions(arguments.runs), "", "| file | MiB |", "|---|---|",
             *sizes(arguments.medium), "",
             "Seconds from power-on until the program's window is on the screen: the median and the",
             "longest on the clock, and the median of the emulator's processor time, which depends",
             "less on what else the machine does. \"Disc\" and \"stick\" include the second in which",
             "a key opens the boot menu.", "",
             "| start from | memory, MiB | median | longest | processor time |", "|---|---|---|---|---|"]
    with tempfile.TemporaryDirectory() as folder:
        network = netboot_folder(pathlib.Path(folder), arguments.medium)
        for way in ways(arguments.medium, network):
            lines.append(row(*way, arguments.runs))
    lines += ["", f"Least memory with which the window came, of {MEMORIES_MIB} MiB: "
              f"{least_memory(arguments.medium)} MiB."]
    arguments.report.write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
