"""Writes the table of faults into docs/faults.md, between its two marks."""

import argparse
import pathlib
import sys

from tests.faults.faults import TABLE, read_faults

PAGE = pathlib.Path(__file__).parents[2] / "docs/faults.md"
BEGIN, END = "<!-- faults: begin -->\n", "<!-- faults: end -->"


def with_table(page, faults):
    """The page with these faults in its table; raises ValueError when a mark is missing."""
    before, begin, rest = page.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not end:
        raise ValueError(f"there is no {BEGIN.strip()} with {END} behind it")
    rows = ["| name | kind | rules |", "|:--|:--|:--|", *(fault.row() for fault in faults)]
    return before + begin + "".join(f"{row}\n" for row in rows) + end + after


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--check", action="store_true",
                        help="write nothing; fail when the page is not up to date")
    arguments = parser.parse_args()
    page = PAGE.read_text()
    wanted = with_table(page, read_faults(TABLE))
    if not arguments.check:
        PAGE.write_text(wanted)
    elif page != wanted:
        sys.exit(f"{PAGE}: not up to date: run python3 -m tests.faults.faults_page")


if __name__ == "__main__":
    main()
