"""The measured figures in docs/performance.md, between two marks; the words around them are written by hand."""
from harness.result import short

_BEGIN, _END = "<!-- figures: written by bench/run -->\n", "<!-- end of figures -->\n"


def update(results, rows, path):
    with open(path, encoding="utf-8") as file:
        before, _, rest = file.read().partition(_BEGIN)
    after = rest.partition(_END)[2]
    with open(path, "w", encoding="utf-8") as file:
        file.write(before + _BEGIN + "\n".join(_table(results, rows)) + "\n" + _END + after)


def _table(results, rows):
    yield "| row | work | yardstick | | measured | aim | |"
    yield "|---|---|---|---|---|---|---|"
    for row in rows:
        for line in results.lines(row):
            mark = "" if line.reached else " missed"
            comparison = "≥" if line.more_is_better else "≤"
            kind = line.kind if line.is_ratio else ""
            yield (f"| {row} | {line.work} | {line.yardstick} | {kind} | **{line.shown(line.value)}**{mark} "
                   f"| {comparison} {line.shown(line.aim)} | {line.figures} |")
        for curve in results.curves_of(row):
            points = ", ".join(f"{size:,}: {short(seconds)} s" for size, seconds in curve.points)
            yield f"| {row} | {curve.name} | | seconds for {curve.axis} | {points} | | |"
    yield ""
    yield f"Measured {' and '.join(results.dates())} on two cores."
