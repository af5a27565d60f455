"""Two pictures of the figures, drawn as SVG: every ratio beside its aim, and time over size."""
import math
import os
from html import escape

from harness.result import short

_SHAPES = """
  text { font: 13px system-ui, "DejaVu Sans", sans-serif; }
  .title { font-weight: 600; font-size: 15px; }
  .soft { font-size: 12px; }
  .end { text-anchor: end; }
  .middle { text-anchor: middle; }
  .aim { stroke-width: 3; }
  polyline { fill: none; stroke-width: 2; }
"""
_LIGHT = {"paper": "#ffffff", "ink": "#1f2328", "grid": "#d8dce1", "soft": "#59636e", "good": "#2f7d4f",
          "bad": "#c2691c", "curves": ("#1f6fb2", "#b5482e", "#2f7d4f", "#7d4fa8")}
_DARK = {"paper": "#16191d", "ink": "#e6e9ed", "grid": "#3a4048", "soft": "#a3acb7", "good": "#57b37e",
         "bad": "#e8944a", "curves": ("#6bb1ec", "#ee8a6d", "#57b37e", "#bd94e6")}


def _colors(of):
    """Rules without variables, which not every program that shows SVG knows."""
    rules = [f"text {{ fill: {of['ink']}; }} .soft {{ fill: {of['soft']}; }} .paper {{ fill: {of['paper']}; }}",
             f".grid {{ stroke: {of['grid']}; }} .one {{ stroke: {of['soft']}; }} .aim {{ stroke: {of['ink']}; }}",
             f".good {{ fill: {of['good']}; }} .bad {{ fill: {of['bad']}; }}"]
    rules += [f"polyline.c{number} {{ stroke: {color}; }} text.c{number}, circle.c{number} {{ fill: {color}; }}"
              for number, color in enumerate(of["curves"])]
    return "\n  ".join(rules)


_STYLE = f"{_SHAPES}  {_colors(_LIGHT)}\n  @media (prefers-color-scheme: dark) {{\n  {_colors(_DARK)}\n  }}\n"


class Drawing:
    def __init__(self, width, height):
        self.parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
                      f'viewBox="0 0 {width} {height}">', f"<style>{_STYLE}</style>"]
        self.box(0, 0, width, height, "paper")

    def text(self, x, y, words, kind=""):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}">{escape(words)}</text>')

    def line(self, x1, y1, x2, y2, kind):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>')

    def box(self, x, y, width, height, kind):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" class="{kind}"/>')

    def curve(self, points, kind):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f'<polyline points="{path}" class="{kind}"/>')
        for x, y in points:
            self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" class="{kind}"/>')

    def save(self, path):
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join([*self.parts, "</svg>"]) + "\n")


class LogScale:
    """Places numbers along a line, decade by decade."""

    def __init__(self, least, most, start, end):
        self.least, self.most, self.start, self.end = least, most, start, end

    def __call__(self, number):
        share = math.log(number / self.least) / math.log(self.most / self.least)
        return self.start + min(max(share, 0), 1) * (self.end - self.start)


def draw(results, rows, folder):
    lines = [line for row in rows for line in results.lines(row)]
    if lines:
        _draw_ratios(lines).save(os.path.join(folder, "performance-ratios.svg"))
    curves = results.curves()
    if curves:
        _draw_sizes(curves).save(os.path.join(folder, "performance-sizes.svg"))


_ROW = 24
_NAMES = 350
_WIDTH = 940
_TICKS = (0.03, 0.1, 0.3, 1, 3, 10)


def _draw_ratios(lines):
    groups = [
        ("Time or processor time, divided by the yardstick's: less is better",
         [line for line in lines if line.kind in ("time", "processor")], lambda line, number: number),
        ("Rate, divided by the yardstick's: more is better",
         [line for line in lines if line.kind == "rate"], lambda line, number: number),
        ("Figures with a limit, divided by it: less is better",
         [line for line in lines if not line.is_ratio], lambda line, number: number / line.aim),
    ]
    groups = [group for group in groups if group[1]]
    drawing = Drawing(_WIDTH, 40 + sum(64 + _ROW * len(members) for _, members, _ in groups))
    drawing.text(16, 24, "Tarn beside its yardsticks; the thick mark is the aim", "title")
    top = 40
    for title, members, scaled in groups:
        top = _draw_group(drawing, top, title, members, scaled)
    return drawing


def _draw_group(drawing, top, title, members, scaled):
    place = LogScale(0.02, 12, _NAMES, _WIDTH - 70)
    bottom = top + 30 + _ROW * len(members)
    drawing.text(16, top + 20, title, "soft")
    for tick in _TICKS:
        drawing.line(place(tick), top + 28, place(tick), bottom, "one" if tick == 1 else "grid")
        drawing.text(place(tick), bottom + 15, f"{tick:g}", "soft middle")
    for number, line in enumerate(members):
        y = top + 30 + _ROW * number
        drawing.text(_NAMES - 10, y + 16, line.work, "end")
        value, aim = place(scaled(line, line.value)), place(scaled(line, line.aim))
        drawing.box(_NAMES, y + 4, value - _NAMES, _ROW - 8, "good" if line.reached else "bad")
        drawing.line(aim, y + 1, aim, y + _ROW - 1, "aim")
        drawing.text(max(value, aim) + 8, y + 16, line.shown(line.value), "soft")
    return bottom + 34


def _draw_sizes(curves):
    drawing = Drawing(_WIDTH, 420)
    drawing.text(16, 24, "Time of the command line over size, data in memory", "title")
    panels = (("files", "number of files of 4 KiB", 60), ("bytes", "size of one file", 510))
    for axis, words, left in panels:
        shown = [curve for curve in curves if curve.axis == axis]
        if shown:
            _draw_panel(drawing, left, words, axis, shown)
    return drawing


def _decades(numbers, base=10):
    low = math.floor(math.log(min(numbers), base) + 1e-9)
    high = math.ceil(math.log(max(numbers), base) - 1e-9)
    return [base ** power for power in range(low, max(high, low + 1) + 1)]


def _draw_panel(drawing, left, words, axis, curves):
    top, bottom, right = 50, 360, left + 320
    sizes = _decades([size for curve in curves for size, _ in curve.points], 10 if axis == "files" else 32)
    times = _decades([seconds for curve in curves for _, seconds in curve.points])
    across, up = LogScale(sizes[0], sizes[-1], left, right), LogScale(times[0], times[-1], bottom, top)
    for size in sizes:
        drawing.line(across(size), top, across(size), bottom, "grid")
        drawing.text(across(size), bottom + 18, f"{size:,}" if axis == "files" else _bytes(size), "soft middle")
    for seconds in times:
        drawing.line(left, up(seconds), right, up(seconds), "grid")
        drawing.text(left - 6, up(seconds) + 4, f"{seconds:g} s", "soft end")
    drawing.text((left + right) / 2, bottom + 42, words, "soft middle")
    label = float("inf")
    for number, curve in sorted(enumerate(curves), key=lambda one: up(one[1].points[-1][1]), reverse=True):
        points = [(across(size), up(seconds)) for size, seconds in curve.points]
        drawing.curve(points, f"c{number}")
        label = min(points[-1][1] + 4, label - 16)  # below each other when the curves end close together
        drawing.text(points[-1][0] + 10, label, f"{curve.name}, {short(curve.points[-1][1])} s",
                     f"c{number}")


def _bytes(size):
    for unit in ("B", "KiB", "MiB", "GiB"):
        if size < 1024 or unit == "GiB":
            return f"{size:.0f} {unit}"
        size /= 1024
