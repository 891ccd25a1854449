"""The table of faults: faults.toml, whose kinds and rules docs/faults.md explains."""

import dataclasses
import pathlib
import re
import tomllib

from tests.faults.faulty_drive import USUAL

TABLE = pathlib.Path(__file__).with_name("faults.toml")
KINDS = ("write", "some", "flush", "gone", "read", "lie", "unproven")
OWN_RULES = (*USUAL, "errno", "setup")
FILTER_RULES = re.compile("error(-.*)?|[a-z]*delay(-.*)?")  # of nbdkit's filters


@dataclasses.dataclass(frozen=True)
class Fault:
    """An entry of the table. Values of rules are texts as the drive gets them."""

    name: str
    kind: str
    rules: dict[str, str] = dataclasses.field(default_factory=dict)

    def __post_init__(self):
        """A misspelt rule would be passed over, and the drive be healthy."""
        unknown = [rule for rule in self.rules
                   if rule not in OWN_RULES and not FILTER_RULES.fullmatch(rule)]
        if self.kind not in KINDS or unknown:
            raise ValueError(f"{self.name}: kind {self.kind}, rules {unknown}: not known")

    def row(self):
        """Its line of the table in docs/faults.md."""
        rules = "".join(f"`{name}={value}` " for name, value in self.rules.items())
        return f"| {self.name} | {self.kind} | " + rules.replace("|", r"\|") + "|"

    def matches(self, expression):
        """Whether the regular expression is found in its name or in its row."""
        return bool(re.search(expression, self.name) or re.search(expression, self.row()))


def read_faults(path):
    """The entries of a table in the form of faults.toml. Raises ValueError, KeyError or TypeError
    when one is not complete, or has something that does not exist."""
    return [Fault(**entry) for entry in tomllib.loads(path.read_text())["fault"]]
