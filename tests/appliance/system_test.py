"""Boots the medium in an emulated computer with drives of every kind, lets it work, and looks at
the drives afterwards. Nothing of this computer is touched."""

import argparse
import pathlib
import shutil
import subprocess
import sys
import time

from appliance import emulator
from practice.stage import erased_drive, old_contents
from practice.stage.work_folder import make_work_folder
from tests.appliance.computer import Computer, read_picture
from tests.appliance.drives import BAD_SECTOR, CONTROLLERS, SECTORS_4096, Drive, one_of_each
from tests.boot import boot_test

ROOT = pathlib.Path(__file__).resolve().parents[2]
ERASE_SECONDS = 3600
HUGE_MIB = 3 << 20  # more than an MBR and 32-bit sector numbers can hold
WIPED, PARTIALLY = "This drive was erased with", "This drive was partially erased with"


class Run:
    """One scenario: its folder, its media, and what was found wrong."""

    def __init__(self, arguments, name):
        self.iso, self.seed, self.size = arguments.iso, arguments.seed, arguments.size
        arguments.directory.mkdir(parents=True, exist_ok=True)
        self.folder, self.wrong = make_work_folder(arguments.directory / name), 0

    def expect(self, is_right, sentence):
        if not is_right:
            self.wrong += 1
            print(f"  WRONG: {sentence}", flush=True)

    def make(self, *drives):
        for number, drive in enumerate(drives):
            drive.make(self.folder / f"drive{number}")
        return drives

    def disc(self):
        return [*CONTROLLERS, *emulator.from_iso(self.iso)]

    def stick(self):
        """A copy that can be written."""
        shutil.copyfile(self.iso, self.folder / "stick")
        return [*CONTROLLERS, *emulator.drive("none", self.folder / "stick", "id=medium"),
                "-device", "usb-storage,bus=usb.0,drive=medium,id=stick,bootindex=0"]

    def check_words(self, bars, words):
        for drive, word in words.items():
            self.expect(bars.get(drive.size_text()) == word, f"{drive}: {word} is not shown")

    def check_picture(self, drive, sentence):
        """Takes the picture from the drive, which names the drive and says the sentence."""
        picture = self.folder / f"{drive.file.name}.png"
        picture.write_bytes(erased_drive.mtools("mtype", drive.file, "::/picture.png"))
        text = read_picture(picture)
        self.expect(sentence in text and f"{drive.size_text()} /" in text,
                    f"{drive}: “{sentence}” or the drive is not on its picture: {text}")
        return picture

    def check_erased(self, drive):
        """From end to end outside the new partition; booted, it shows its picture."""
        picture = self.check_picture(drive, WIPED)
        wrong, facts = erased_drive.check(drive.file, picture, drive.sector_size)
        self.expect(not wrong, f"{drive}: {'; '.join(wrong)}")
        print(f"  {drive}: {'; '.join(facts)}", flush=True)
        if drive.sector_size == 512:  # a BIOS cannot boot from others
            boot_test.boot("bios", [drive.file], picture, self.folder)
        device = "nvme,serial=1" + (SECTORS_4096 if drive.sector_size == 4096 else "")
        boot_test.boot("uefi64", [drive.file], picture, self.folder, device)


def erase(run, medium, firmware):
    drives = run.make(*one_of_each(run.seed, run.size))
    before = {drive: drive.digest() for drive in drives if drive.fault == "read-only"}
    with Computer(run.folder, medium, drives, firmware=firmware) as computer:
        computer.wait_for_window()
        computer.wait_for("Initializing", 60, "discovery")
        listed = computer.wait_for_countdown()
        for drive in drives:
            run.expect(f"{drive.size_text()} /" in listed, f"{drive} is not listed: {listed}")
        computer.wait_for("Erasing drives|failed:", 60, "erasing")
        said, bars = computer.wait_for_complete(ERASE_SECONDS)
    run.check_words(bars, {drive: "ERROR" if drive.fault else "DONE" for drive in drives})
    for drive in drives:
        if drive.fault == "read-only":
            run.expect(drive.digest() == before[drive], f"{drive}: it has changed")
        elif drive.fault == "bad":
            run.expect(f"first at sector {BAD_SECTOR}" in said, f"{drive}: it is not named")
            with drive.file.open("rb") as image:
                left = erased_drive.foreign_sectors(image, drive.file.stat().st_size, ())
            run.expect(left == (1, BAD_SECTOR), f"{drive}: not erased are (count, first) {left}")
        else:
            run.check_erased(drive)


def erase_bios(run):
    erase(run, run.disc(), "bios")


def erase_uefi(run):
    erase(run, run.stick(), "uefi64")
    run.expect((run.folder / "stick").read_bytes() == run.iso.read_bytes(), "the stick has changed")


def hotplug(run):
    stays, pulled, plugged, breaks = run.make(
        Drive("ide", "office", run.size), Drive("usb", "photos", run.size + 20),
        Drive("usb", "ext4", run.size + 40), Drive("usb", "empty", 3000, mib_per_second=20))
    with Computer(run.folder, run.disc(), [stays, pulled, breaks], [plugged]) as computer:
        computer.wait_for_window()
        start = computer.seconds()
        computer.wait_for(f"{pulled.size_text()} /", 10, "before-pulling")
        computer.order("device_del", id=pulled.file.name)
        time.sleep(max(0, start + 8 - computer.seconds()))
        settings = f"driver={plugged.device()}".split(",")
        computer.order("device_add", **dict(setting.split("=") for setting in settings))
        print(f"  plugged in {computer.seconds() - start:.1f} s after the window was there")
        listed = computer.wait_for_countdown()
        run.expect(f"{pulled.size_text()} /" not in listed, f"{pulled} is still listed: {listed}")
        computer.wait_for("Erasing drives", 60, "erasing")
        computer.order("device_del", id=breaks.file.name)
        _, bars = computer.wait_for_complete(ERASE_SECONDS)
    run.check_words(bars, {stays: "DONE", plugged: "DONE", breaks: "ERROR"})
    run.check_erased(stays)
    run.check_erased(plugged)


def stop_countdown(run):
    """No drive of any kind is touched before the countdown ends."""
    drives = run.make(*one_of_each(run.seed, run.size)[:6], Drive("virtio", "empty", HUGE_MIB),
                      *(Drive("virtio", kind, run.size + 70) for kind in old_contents.KINDS))
    before = {drive: drive.digest() for drive in drives}
    with Computer(run.folder, run.stick(), drives) as computer:
        computer.wait_for_window()
        computer.wait_for_countdown()
        computer.press("alt-t")
        computer.wait_for(r"Stopped\.", 30, "stopped")
        time.sleep(15)  # longer than the countdown
        computer.wait_for(r"Stopped\.", 5, "still-stopped")
    for drive in drives:
        run.expect(drive.digest() == before[drive], f"{drive} has changed")
    run.expect((run.folder / "stick").read_bytes() == run.iso.read_bytes(), "the stick has changed")


def stop_erase(run):
    drives = run.make(Drive("sd", "photos", 128), Drive("ide", "office", 3000, mib_per_second=10),
                      Drive("virtio", "empty", HUGE_MIB, mib_per_second=20))
    with Computer(run.folder, run.disc(), drives) as computer:
        computer.wait_for_window()
        computer.wait_for("Erasing drives", 200, "erasing")
        computer.wait_for_screen(lambda _: computer.bars().get(drives[0].size_text()) == "DONE",
                                 900, "the first drive to be done")
        computer.press("alt-t")
        computer.wait_for("If you stop erasing", 30, "question")
        computer.press("alt-y")
        _, bars = computer.wait_for_complete(ERASE_SECONDS)
    run.check_words(bars, dict.fromkeys(drives, "DONE"))
    run.check_erased(drives[0])
    for drive in drives[1:]:
        run.check_picture(drive, PARTIALLY)


MENU = (["alt-shift-m"], "Wizard[^$]*Mounter", "menu")
CLOSED = (["esc"], r"Stopped\.", "closed")
MOUNTER = (["m"], r"VFAT \(vfat\) - <not mounted>[^$]*EXT4 \(ext4\) - <not mounted>", "mounter")
TOOLS = [  # keys, what the screen then says, the picture's name
    ([], "will begin erasing", "countdown"), (["alt-t"], r"Stopped\.", "stopped"),
    MENU, (["w"], "select a drive", "wizard"),
    (["alt-n"], "Serial Number: S-", "wizard-drive"), (["alt-v"], "LBA: 0", "viewer"),
    (["ctrl-a", *"2048"], "mkfs|FAT16", "viewer-boot-sector"),
    (["esc"], "Number: S-", "wizard-again"), CLOSED, MENU, MOUNTER,
    (["alt-m"], r"VFAT \(vfat\) - /media/VFAT", "fat"), (["alt-b"], r"record.\.txt", "fat-files"),
    (["esc", "alt-u"], r"VFAT \(vfat\) - <not mounted>", "fat-unmounted"), CLOSED, MENU, MOUNTER,
    (["down", "alt-m"], r"EXT4 \(ext4\) - /media/EXT4", "ext4"),
    (["alt-b"], r"record.\.txt", "ext4-files"),
    (["esc", "alt-u"], r"EXT4 \(ext4\) - <not mounted>", "ext4-unmounted"), CLOSED]


def tools(run):
    drives = run.make(Drive("ide", "office", run.size))
    with Computer(run.folder, run.disc(), drives) as computer:
        computer.wait_for_window()
        for number, (keys, pattern, name) in enumerate(TOOLS):
            computer.press(*keys)
            computer.wait_for(pattern, 60, f"{number:02}-{name}")
        computer.press("alt-r")
        computer.wait_for_screen(lambda shown: not emulator.shows_window(shown), 60, "the restart")
        computer.wait_for_window()
        computer.press("alt-s")
        run.expect(computer.wait_for_end(90) == 0, "shutdown: the emulator failed")


SCENARIOS = {function.__name__.replace("_", "-"): function for function in
             (tools, stop_countdown, stop_erase, hotplug, erase_bios, erase_uefi)}


def parse_arguments():
    parser = argparse.ArgumentParser(prog="system-test", description=__doc__)
    parser.add_argument("scenarios", nargs="*", metavar="SCENARIO", choices=[[], *SCENARIOS],
                        help=f"default: all, which are {', '.join(SCENARIOS)}")
    parser.add_argument("--iso", type=pathlib.Path, default=ROOT / "build/iso/vantrelleplus.iso")
    parser.add_argument("--directory", type=pathlib.Path, default=ROOT / "build/system-test",
                        help="for images and screens, a folder for each scenario")
    parser.add_argument("--seed", type=int, default=1, help="draws what lies on which drive")
    parser.add_argument("--size", type=int, default=100, metavar="MIB", help="small drives have "
                        "at least this size (default: 100)")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    failed = 0
    for name in arguments.scenarios or SCENARIOS:
        print(f"{name}:", flush=True)
        run, start = Run(arguments, name), time.monotonic()
        try:
            SCENARIOS[name](run)
        except (OSError, RuntimeError, ValueError, subprocess.SubprocessError) as failure:
            run.expect(False, failure)
        result = "FAILED" if run.wrong else "passed"
        print(f"{name}: {result} in {time.monotonic() - start:.0f} s", flush=True)
        failed += run.wrong
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
