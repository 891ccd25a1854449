"""The program's log file tells what happens in a run."""

import pathlib
import re

from practice.stage.processes import wait_until

DISCOVERY_SECONDS = 60  # until the countdown at the latest, on a busy machine


class Log:
    """The program's log file, and what it tells of the run."""

    def __init__(self, path):
        self._path = path

    def text(self):
        return self._path.read_text(errors="replace") if self._path.exists() else ""

    def wait_for(self, pattern, seconds, what):
        return wait_until(lambda: re.search(pattern, self.text()), seconds, what)

    def ended_jobs(self):
        return len(re.findall(r"id: \d+: finished: ", self.text()))

    def is_over(self, drive):
        """Whether nothing more happens to the drive with this number: it was erased and
        formatted, or one of the two failed."""
        text = self.text()
        failed = rf"id: {drive}: (stdout: error: |finished: exitCode: [1-9]|finished: .*Status: 1)"
        return text.count(f"id: {drive}: finished: ") == 2 or re.search(failed, text) is not None

    def picture(self, image):
        """The picture that was made for a drive; None when it was not formatted."""
        start = re.search(rf"start: .*/format {re.escape(str(image))} (.*\.png)$", self.text(),
                          re.MULTILINE)
        return pathlib.Path(start.group(1)) if start else None
