"""odd_on_purpose_test.py ROOT: each file, function and row that the page names is there, and each
comment that points to the page names one of its entries."""

import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1])
PAGE = (ROOT / "docs/odd-on-purpose.md").read_text()
ENTRIES = re.findall(r"^### (.*)$", PAGE, re.MULTILINE)
POINTER = re.compile(r'[Ss]ee "([^"]+)" in docs/odd-on-purpose\.md')


def missing(line):
    """What a line "Where" or "Test" names in vain. A name stands behind its file."""
    text = ""
    for name in re.findall(r'[`"]([^`"]+)[`"]', " ".join(line.split())):
        path = ROOT / name
        if path.is_file():
            text = path.read_text(errors="replace")
        elif not path.is_dir() and not re.search(rf"(?<!\w){re.escape(name.rstrip(')'))}", text):
            yield name


for entry in PAGE.split("\n### ")[1:]:
    where, test = re.findall(r"^- (?:Where|Test): .*(?:\n  .*)*", entry, re.MULTILINE)
    vain = [*missing(where), *missing(test)]
    assert "`tests/" in test and not vain, f"{entry.splitlines()[0]}: not there: {vain}"

for source in (path for path in ROOT.rglob("*") if path.suffix in (".cpp", ".h", ".txt")):
    if source.relative_to(ROOT).parts[0] != "build":
        comments = source.read_text()
        names = POINTER.findall(comments)
        wrong = set(names) - set(ENTRIES)
        assert len(names) == comments.count("docs/odd-on-purpose.md") and not wrong, (source, wrong)
