"""Every way in which the kernel is started gives it all the words that it needs."""

import pathlib
import re
import subprocess

from appliance import emulator

APPLIANCE = pathlib.Path("appliance")
ALWAYS = {"rootfstype=ramfs", "noresume", "libata.ignore_hpa=1", "quiet"}
ON_A_MEDIUM = ALWAYS | {"vantrelle.medium=$medium"}


def kernel_lines(configuration):
    """The words that each `linux` line of GRUB's configuration gives to the kernel. Variables that
    the configuration does not set itself stay as they are."""
    variables, lines = {}, []
    for line in configuration.splitlines():
        line = re.sub(r"\$(\w+)", lambda name: variables.get(name[1], name[0]), line.strip())
        if setting := re.fullmatch(r'set (\w+)="?(.*?)"?', line):
            variables[setting[1]] = setting[2]
        if line.startswith("linux "):
            lines.append(line.split()[2:])
    return lines


def check_configuration(name, needed, count):
    path = APPLIANCE / name
    subprocess.run(["grub-script-check", path], check=True)
    lines = kernel_lines(path.read_text())
    assert len(lines) == count, (path, lines)
    for words in lines:
        assert needed <= set(words), (path, needed - set(words))
        assert len(words) == len(set(words)), (path, words)


def check_start_lines():
    assert kernel_lines('set a="b $c"\nlinux /x $a d\nset a="$a e"\n linux /x $a') == [
        ["b", "$c", "d"], ["b", "$c", "e"]]
    check_configuration("grub.cfg", ON_A_MEDIUM, 3)
    check_configuration("netboot/grub.cfg", ALWAYS, 1)
    check_configuration("grub-start.cfg", ALWAYS, 0)
    assert {path.name for path in APPLIANCE.rglob("*.cfg")} == {"grub.cfg", "grub-start.cfg"}
    options = emulator.from_kernel(pathlib.Path("folder"), "more")
    assert ALWAYS | {"more"} <= set(options[options.index("-append") + 1].split()), options


check_start_lines()
