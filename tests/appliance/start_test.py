"""Every way in which the kernel is started gives it all the words that it needs, and the words
that a person chooses in the boot menu do what they say."""

import pathlib
import re
import subprocess

from appliance import emulator

APPLIANCE = pathlib.Path("appliance")
ALWAYS = {"rootfstype=ramfs", "noresume", "libata.ignore_hpa=1", "quiet"}
ON_A_MEDIUM = ALWAYS | {"vantrelle.medium=$medium"}
# The command line, the level that it means, and whether something is said.
LEVELS = (
    ("quiet noresume", "tenth", False),
    ("quiet vantrelle.verify=spot noresume", "spot", False),
    ("vantrelle.verify=tenth", "tenth", False),
    ("vantrelle.verify=full\n", "full", False),
    ("vantrelle.verify=spot vantrelle.verify=full", "full", False),
    ("vantrelle.verify=", "tenth", True),
    ("vantrelle.verify=Full", "tenth", True),
    ("vantrelle.verify=full vantrelle.verify=*", "tenth", True),
    ("xvantrelle.verify=full vantrelle.verify.full", "tenth", False),
)


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
    return lines


def check_start_lines():
    assert kernel_lines('set a="b $c"\nlinux /x $a d\nset a="$a e"\n linux /x $a') == [
        ["b", "$c", "d"], ["b", "$c", "e"]]
    lines = check_configuration("grub.cfg", ON_A_MEDIUM, 5)
    chosen = [[word for word in words if "verify" in word] for words in lines]
    assert chosen == [[], [], [], ["vantrelle.verify=full"], ["vantrelle.verify=spot"]], chosen
    check_configuration("netboot/grub.cfg", ALWAYS, 1)
    check_configuration("grub-start.cfg", ALWAYS, 0)
    assert {path.name for path in APPLIANCE.rglob("*.cfg")} == {"grub.cfg", "grub-start.cfg"}
    options = emulator.from_kernel(pathlib.Path("folder"), "more")
    assert ALWAYS | {"more"} <= set(options[options.index("-append") + 1].split()), options


def check_levels():
    program = APPLIANCE / "root/usr/lib/vantrelleplus/verification-level"
    for command_line, level, is_said in LEVELS:
        run = subprocess.run([program], input=command_line, capture_output=True, text=True,
                             check=True)
        assert (run.stdout, bool(run.stderr)) == (level + "\n", is_said), (command_line, run)
    screen = (APPLIANCE / "root/usr/lib/vantrelleplus/run-screen").read_text()
    set_level = screen.index("VANTRELLE_VERIFY=$(/usr/lib/vantrelleplus/verification-level "
                             "</proc/cmdline)\nexport VANTRELLE_VERIFY")
    assert set_level < screen.index("/usr/lib/vantrelleplus/vantrelleplus desktop")


check_start_lines()
check_levels()
