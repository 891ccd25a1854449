"""Keeps a run on image files from restarting or switching off this computer."""

import os
import subprocess
import sys

SYSTEM_COMMANDS = ("/sbin/reboot", "/sbin/poweroff")


def shield_system_commands(is_virtual):
    """Runs this program again where the restart and shutdown commands are harmless: in a mount
    namespace of its own, with /bin/true in their places. Where that is not allowed only a
    virtual screen will do, on which nobody presses a button."""
    real = sorted({os.path.realpath(path) for path in SYSTEM_COMMANDS if os.path.exists(path)})
    if not real or os.environ.get("PRACTICE_SHIELDED"):
        return
    mounts = "".join(f"mount --bind /bin/true {path} && " for path in real)
    command = ["unshare", "--mount"] + ([] if os.geteuid() == 0 else ["--map-root-user"])
    shell = [*command, "sh", "-c", mounts + 'exec "$@"', "sh"]
    if subprocess.run([*shell, "true"], capture_output=True, check=False).returncode == 0:
        os.environ["PRACTICE_SHIELDED"] = "1"
        # Of the interpreter: sys.argv does not tell that it runs a module.
        os.execvp(shell[0], [*shell, sys.executable, *sys.orig_argv[1:]])
    if not is_virtual:
        sys.exit("practice: the restart and shutdown commands cannot be replaced for the run "
                 "(unshare failed), so the buttons in the window would be real; use --virtual, "
                 "run it as root, or allow user namespaces")
