"""rooms_test.py ROOT: scripts/check-rooms finds nothing in the tree, and finds each kind of wrong
include, with file, line and what is allowed."""

import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(sys.argv[1])
# A file, an include line that is wrong in it, and what has to be said of it.
WRONG = (
    ("config/load.cpp", '#include "app/base/debug_log.h"', "config may include only its own"),
    ("app/display/dbg_window.cpp", '# include  "work/work_widget.h"', "may include only app/base"),
    ("work/worker.h", '#include "app/window/main_window.h"', "work may include only erase"),
    ("helpers/driver/run.cpp", '#include "helpers/format/run.h"', "may include only helpers/protocol"),
    ("diskservice/bus/device_properties.h", '#include "storage/drive.h"', "may include only"),
    ("storage/driver.cpp", "#include <config/value.h>", "is a file of this tree"),
    ("storage/driver.cpp", '#include "../config/value.h"', "no such file from the root"),
    ("storage/driver.cpp", "#include CONFIG_VALUE", "not a plain file name"),
    ("nowhere/new.cpp", '#include "config/value.h"', "no line for the folder nowhere"),
)


def check(tree):
    """The exit code and the output of the check on a tree."""
    run = subprocess.run([ROOT / "scripts/check-rooms", tree], capture_output=True, text=True,
                         check=False)
    return run.returncode, run.stdout


def copy_sources(tree):
    for pattern in ("*.cpp", "*.h", "rooms.txt"):
        for source in ROOT.rglob(pattern):
            path = source.relative_to(ROOT)
            if path.parts[0] != "build":
                (tree / path).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, tree / path)


with tempfile.TemporaryDirectory() as name:
    tree = pathlib.Path(name)
    copy_sources(tree)
    assert check(tree) == (0, ""), check(tree)
    for path, include, complaint in WRONG:
        source = tree / path
        before = source.read_text() if source.exists() else None
        source.parent.mkdir(exist_ok=True)
        source.write_text(f"// first\n{include}\n{before}")
        code, output = check(tree)
        assert code == 1 and output.startswith(f"{path}:2: ") and complaint in output, (path, output)
        assert len(output.splitlines()) == 1, output
        if before is None:
            source.unlink()
        else:
            source.write_text(before)

    table = tree / "rooms.txt"
    table.write_text(table.read_text().replace("\nconfig:", "\nconfig: storage"))
    assert check(tree) == (1, "rooms.txt: config: storage does not stand below it\n"), check(tree)
