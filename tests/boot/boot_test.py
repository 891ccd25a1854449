"""boot_test FORMAT DIRECTORY: boots a formatted image and looks at the screen.

An image file that was filled with a pattern is formatted by the program FORMAT and booted in an
emulator by BIOS, by 64-bit UEFI and by 32-bit UEFI, each time beside a second drive that shows
another picture. The screen has to become the picture; a key has to restart the machine. The last
screens are kept in DIRECTORY. The first failure ends it, with exit code 1. Needs neither root nor
KVM.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import time

from appliance import emulator

DEADLINE_S = 240         # for one boot; software emulation on a loaded machine is slow
ALLOWED_RMSE = 0.001     # of full scale; a text cursor left on the picture makes 0.0016


def make_picture(path, colours):
    """An 800x600 RGBA PNG; every corner has its own look, so that a shift shows."""
    subprocess.run(['convert', '-size', '800x600', f'gradient:{colours}',
                    '-fill', 'white', '-draw', 'rectangle 0,0 20,20',
                    '-fill', 'red', '-draw', 'rectangle 779,579 799,599', 'PNG32:' + path],
                   check=True)


def rmse(machine, picture, kept):
    """Root mean square difference of the screen, 0 (same) to 1; 1 for one of another size."""
    screen = machine.screen(kept)
    if (screen.width, screen.height) != (800, 600):
        return 1.0
    result = subprocess.run(['compare', '-metric', 'RMSE', kept, picture, 'null:'],
                            capture_output=True, text=True)
    found = re.search(r'\(([\d.e+-]+)\)$', result.stderr)
    return float(found.group(1)) if found else 1.0


def boot(firmware, drives, picture, directory, device='ide-hd,bus=sata.{}'):
    """Boots the last of the drives, attached as `device`. Raises RuntimeError, OSError or
    SubprocessError unless all goes well."""
    options = ['-no-reboot', '-device', 'ahci,id=sata']
    for index, drive in enumerate(drives):
        options += emulator.drive('none', drive, f'id=d{index}', 'snapshot=on')
        first = ',bootindex=0' if drive == drives[-1] else ''
        options += ['-device', f'{device.format(index)},drive=d{index}{first}']
    with emulator.Machine(options, firmware, memory_mib=256) as machine:
        kept = pathlib.Path(directory) / f'{pathlib.Path(picture).stem}-{firmware}.ppm'
        machine.wait_for_screen(lambda _: rmse(machine, picture, kept) <= ALLOWED_RMSE, DEADLINE_S,
                                f'the picture, see {kept}')
        print(f'  {firmware}: the picture is there after {machine.seconds():.0f} s, {kept}')
        time.sleep(3)  # what goes on without a key does so at once
        if rmse(machine, picture, kept) > ALLOWED_RMSE:
            raise RuntimeError(f'the picture did not stay, see {kept}')
        machine.press('x')
        if machine.wait_for_end(DEADLINE_S) != 0:
            raise RuntimeError('the emulator failed instead of restarting')


def main():
    format_program, directory = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        pictures = [folder + '/other.png', folder + '/picture.png']
        make_picture(pictures[0], '#a06030-#fff0f0')
        make_picture(pictures[1], '#3060a0-#f0f0ff')
        drives = [picture + '.drive' for picture in pictures]
        for drive, picture in zip(drives, pictures):
            pathlib.Path(drive).write_bytes(b'VANTRELLE' * (96 * 2**20 // 9))
            subprocess.run([format_program, drive, picture], check=True)
        for firmware in emulator.FIRMWARES:
            boot(firmware, drives, pictures[1], directory)
            print(f'{firmware}: passed', flush=True)


if __name__ == '__main__':
    main()
