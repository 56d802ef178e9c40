"""Draws results.svg: for each row with a goal, our figure as a share of each peer's, with the goal marked.

The background is transparent; every colour is far enough from white and from black to be read on both.
"""

from pathlib import Path

import matplotlib
import rows

matplotlib.use("svg")
from matplotlib import pyplot  # noqa: E402  the backend must be chosen first

TEXT = "#7a7a7a"
MET = "#2e9e5b"
MISSED = "#d9534f"
INFORMATION = "#4a90d9"
GOAL = "#c77f00"
# Ratios beyond this are cut off, with the number still written.
LARGEST = 1.3


def colour_of(entry: dict) -> str:
    return {True: MET, False: MISSED, None: INFORMATION}[entry["met"]]


def is_limit(entry: dict) -> bool:
    return str(entry["peer"]).startswith(rows.BARE)


def draw(entries: list[dict], path: Path) -> None:
    """Draws the entries of results.json that have goals, and those beside them."""
    # The limits are no peers: of them only what has a goal belongs here.
    drawn = [entry for entry in entries if entry["goal"] is not None or not is_limit(entry)]
    pyplot.rcParams.update({"svg.fonttype": "none", "font.size": 9, "text.color": TEXT})
    pyplot.rcParams["svg.hashsalt"] = "bench"  # the same figures give the same file
    lines, position, last = [], 0.0, None
    for entry in drawn:
        position += 1 if entry["row"] == last else 2.2
        lines.append((position, entry, entry["row"] != last))
        last = entry["row"]
    figure, axes = pyplot.subplots(figsize=(9, 0.21 * position + 1.2))
    for line, entry, is_first in lines:
        draw_line(axes, line, entry, is_first)
    axes.axvline(1, color=TEXT, linewidth=0.8)
    axes.set_xlim(0, LARGEST + 0.3)
    axes.set_ylim(position + 1, -0.5)
    axes.set_yticks([line for line, _, _ in lines], [entry["peer"] for _, entry, _ in lines])
    axes.set_xlabel("our figure as a share of the peer's (1: equal, less: better); marked: the goal")
    axes.xaxis.label.set_color(TEXT)
    axes.tick_params(colors=TEXT, length=0)
    for spine in axes.spines.values():
        spine.set_visible(False)
    figure.tight_layout()
    figure.savefig(path, transparent=True, metadata={"Date": None})
    pyplot.close(figure)


def draw_line(axes: pyplot.Axes, line: float, entry: dict, is_first: bool) -> None:
    if is_first:
        axes.text(0, line - 1, entry["row"], va="center", fontweight="bold")
    ratio = entry["ratio"]
    if ratio is None:
        axes.text(0.01, line, entry.get("note", "not measured"), va="center", fontstyle="italic")
        return
    axes.barh(line, min(ratio, LARGEST), height=0.72, color=colour_of(entry))
    goal = entry["goal"]
    if goal is not None:
        axes.plot([goal, goal], [line - 0.45, line + 0.45], color=GOAL, linewidth=2.5)
    beside = max(min(ratio, LARGEST), goal or 0)
    label = f"{ratio:.2f}" if goal is None else f"{ratio:.2f} (goal {goal:.2f})"
    axes.text(beside + 0.01, line, label, va="center")
