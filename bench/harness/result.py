"""What a row yields, the table on the terminal, and the file that keeps the figures."""
import datetime
import json
import os
import subprocess
from dataclasses import asdict, dataclass, field


@dataclass
class Line:
    """One line of the table: a figure, what it is a ratio of or its unit, and the aim."""
    work: str
    yardstick: str
    kind: str  # "time", "processor", "rate", or the unit of a figure without a yardstick: "s", "MiB", "µs"
    value: float
    aim: float
    figures: str = ""  # what the ratio was made of

    @property
    def more_is_better(self):
        return self.kind == "rate"

    @property
    def is_ratio(self):
        return self.kind in ("time", "processor", "rate")

    @property
    def reached(self):
        return self.value >= self.aim if self.more_is_better else self.value <= self.aim

    def shown(self, number):
        return short(number) if self.is_ratio else f"{short(number)} {self.kind}"


@dataclass
class Curve:
    """Time over size, for one of the pictures."""
    name: str
    axis: str  # "files" or "bytes"
    points: list = field(default_factory=list)  # of (size, seconds)


def short(number):
    """Three digits, as a person would write them."""
    if number >= 100: return f"{number:,.0f}"
    if number >= 10: return f"{number:.1f}"
    return f"{number:.2f}" if number >= 0.1 else f"{number:.3f}"


COLUMNS = "{:<48} {:<40} {:>9} {:>9} {:>9}  {}"


def print_head():
    print(COLUMNS.format("work", "yardstick", "of", "ratio", "aim", "figures"))
    print("-" * 150, flush=True)


def print_line(line):
    aim = ("≥ " if line.more_is_better else "≤ ") + line.shown(line.aim)
    kind = line.kind if line.is_ratio else ""
    print(COLUMNS.format(line.work, line.yardstick or "-", kind, line.shown(line.value), aim, line.figures), flush=True)


class Results:
    """The figures of all rows, those of earlier runs included, in one JSON file."""

    def __init__(self, path):
        self.path = path
        self.rows = {}
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                self.rows = json.load(file)["rows"]

    def put(self, row, lines, curves):
        self.rows[row] = {
            "measured": datetime.date.today().isoformat(),
            "commit": _output("git", "rev-parse", "--short", "HEAD"),
            "load": round(os.getloadavg()[0], 1),
            "lines": [asdict(line) for line in lines],
            "curves": [asdict(curve) for curve in curves],
        }
        os.makedirs(os.path.dirname(self.path), exist_ok=True)
        with open(self.path, "w", encoding="utf-8") as file:
            json.dump({"cores": os.cpu_count(), "rows": self.rows}, file, indent=1, ensure_ascii=False)

    def lines(self, row):
        return [Line(**line) for line in self.rows.get(row, {}).get("lines", [])]

    def curves(self):
        return [curve for row in self.rows for curve in self.curves_of(row)]

    def curves_of(self, row):
        return [Curve(**curve) for curve in self.rows.get(row, {}).get("curves", [])]

    def dates(self):
        return sorted({row["measured"] for row in self.rows.values()})


def _output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()
