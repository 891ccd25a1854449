"""Measures how often a writing run notices a drive that lies, at each level of verification, and
puts the figures into docs/verification.md and the driver's manual; see scripts/verification-figures.

Models: verification_figures, where the driver's own pass runs on a drive in memory. Drives: the built
program on drives that nbdkit makes, a few runs each."""

import collections
import datetime
import os
import pathlib
import subprocess
import sys

from practice.stage.processes import Processes
from tests.faults import faulty_drive
from tests.faults.watched_run import clear, prepare, show_as_file

ROOT = pathlib.Path(__file__).resolve().parent.parent
LEVELS = ("spot", "tenth", "full")
# By their names in the models' figures.
DRIVES = {
    "honest": {},
    "a region of 1 % lost": {"place": "None if n * 3 // 7 <= s < n * 3 // 7 + n // 100 else s"},
    "0.01 % of the sectors lost, scattered": {"place": "None if chance(s) < 0.0001 else s"},
    "one sector lost": {"place": "None if s == int(chance(1) * n) else s"},
    **{f"starts again at its beginning after {share} %":
       {"place": f"s % (n * {share} // 100)", "cache": f"n * {100 - share} // 200"}
       for share in (90, 97, 99)},
    **{f"goes on anywhere else after {share} %":
       {"place": f"s if s < n * {share} // 100 else s - n * {share} // 100 + "
                 f"int(n * {2 * share - 100} // 100 * chance(1))",
        "cache": f"n * {100 - share} // 200"} for share in (90, 97, 99)},
}


def run_models(options):
    """(runs, found) by kind of drive and level."""
    done = subprocess.run(["nice", options.build / "bin/verification_figures", str(options.models)],
                          stdout=subprocess.PIPE, text=True, check=True)
    lines = (line.split("|") for line in done.stdout.splitlines())
    return {(kind, level): (int(runs), int(found)) for kind, level, runs, found in lines}


def is_found(rules, level, options, seed):
    folder = options.directory / "drive"
    folder.mkdir()
    medium, path = folder / "medium", folder / "file"
    medium.touch()
    os.truncate(medium, options.size << 20)
    rules = {"seed": seed, "seconds": 0, **rules}
    with Processes() as processes:
        show_as_file(processes, path, [
            "--filter=blocksize", "python", faulty_drive.__file__, f"file={medium}",
            f"minblock={faulty_drive.SECTOR}",
            *(f"{name}={value}" for name, value in rules.items())])
        done = subprocess.run(
            [options.build / "bin/lib/driver", f"device={path}", "mode=write", "pattern=VANTRELL",
             "sectorsPerTime=256"], stdout=subprocess.PIPE, text=True, check=False,
            env={**os.environ, "VANTRELLE_VERIFY": level})
    clear(folder)
    if done.returncode == 1 and "do not hold what was written" not in done.stdout:
        raise RuntimeError(done.stdout)
    return done.returncode == 1


def run_drives(options):
    counts = collections.defaultdict(lambda: (0, 0))
    for level in options.levels.split(","):
        for kind, rules in DRIVES.items():
            for seed in range(options.drives):
                runs, found = counts[kind, level]
                counts[kind, level] = runs + 1, found + is_found(rules, level, options, seed)
            print(kind, level, counts[kind, level], flush=True)
    return counts


def cell(counts, kind, level):
    runs, found = counts.get((kind, level), (0, 0))
    return f"{found} of {runs}" if runs else ""


def table(models, drives):
    head = ["drive", *(f"{level}, model" for level in LEVELS),
            *(f"{level}, nbdkit" for level in LEVELS)]
    rows = [[kind, *(cell(models, kind, level) for level in LEVELS),
             *(cell(drives, kind, level) for level in LEVELS)] for kind in DRIVES]
    return "".join(f"| {' | '.join(row)} |\n" for row in [head, ["---"] * len(head), *rows])


def put_between(path, begin, text, end):
    before, _, rest = path.read_text().partition(begin)
    path.write_text(before + begin + text + end + rest.partition(end)[2])


def main():
    options = prepare(__doc__, models=1000, drives=5, size=512, levels="tenth")
    if options.missing:
        sys.exit(f"there is no {options.missing}")
    models, drives = run_models(options), run_drives(options)
    text = (f"**Noticed** ({options.size} MiB of the nbdkit drives, {datetime.date.today()})\n\n" +
            table(models, drives))
    print(text)
    put_between(ROOT / "docs/verification.md", "<!-- figures: begin -->\n", text,
                "<!-- figures: end -->")
    put_between(ROOT / "docs/vantrelleplus-driver.1", '.\\" figures: begin\n',
                "".join("\t".join([kind, *(str(models[kind, level][1]) for level in LEVELS)]) + "\n"
                        for kind in DRIVES), '.\\" figures: end')


if __name__ == "__main__":
    main()
