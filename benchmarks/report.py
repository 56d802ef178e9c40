#!/usr/bin/env python3
"""Runs the benchmarks and compares our library with its peers: what `make bench` calls.

    benchmarks/report.py BUILD-FOLDER [--quick] [--benchmark_filter=REGEX ...]

BUILD-FOLDER is one in which CMake has built the target "benchmarks". Prints a table, and writes beside it

    results.json   a list of objects: row, ours, peer, peer_value, unit, ratio, goal, met, note
    results.svg    a chart of the rows with goals
    raw/           what the programs printed and measured

Further arguments go to each program; with --benchmark_list_tests only the names are printed. Every figure is
the median of the repetitions, of which those of all loggers alternate in random order. Ends with 1 if a
benchmark failed; goals that are not met are no failure.
"""

import json
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
import time
from collections import defaultdict
from pathlib import Path

import buildcost
import instructions
import rows

# By side: the runs that Google Benchmark reports. By key and variant ("threads:2" or ""): the sides.
Sides = dict[str, list[dict]]
Measured = dict[tuple[str, str], Sides]

# What Google Benchmark appends to names about the way of measuring.
HOW_MEASURED = re.compile(r"^(iterations|repeats|min_time|min_warmup_time):|^(real|manual|process)_time$")


def environment(build: Path, quick: bool) -> dict[str, str]:
    """That of the programs: what peers store lies in the build folder, nothing in the user's home."""
    home = build / "raw" / "home"
    shutil.rmtree(home, ignore_errors=True)
    (home / "runtime").mkdir(parents=True, mode=0o700)
    own = {
        "HOME": str(home),
        "XDG_CONFIG_HOME": str(home / "config"),
        "XDG_RUNTIME_DIR": str(home / "runtime"),
        "GSETTINGS_SCHEMA_DIR": str(build / "benchmarks" / "schemas"),
        "GSETTINGS_BACKEND": "dconf",
        "GLOG_drop_log_memory": "0",
        "VELORA_BENCH_QUICK": "1" if quick else "",
    }
    folder = {"VELORA_BENCH_FOLDER": os.environ.get("VELORA_BENCH_FOLDER", str(build))}
    return {**os.environ, **folder, **own}


def command_of(program: str, build: Path) -> list[str]:
    command = [str(build / "benchmarks" / program)]
    # A session bus of its own, so that GSettings never reaches the user's.
    if program == "PreferencesBenchmark" and shutil.which("dbus-run-session"):
        command = ["dbus-run-session", "--", *command]
    return command


def run_program(program: str, repetitions: int, build: Path, quick: bool, arguments: list[str]) -> list[dict]:
    """The runs of all benchmarks of one program."""
    result = build / "raw" / f"{program}.json"
    result.unlink(missing_ok=True)
    options = [
        f"--benchmark_repetitions={1 if quick else repetitions}",
        "--benchmark_enable_random_interleaving=true",
        f"--benchmark_min_time={0.005 if quick else 0.1}",
        f"--benchmark_out={result}",
        "--benchmark_out_format=json",
    ]
    started = time.monotonic()
    print(f"{program} ... ", end="", flush=True)
    with (build / "raw" / f"{program}.txt").open("w") as log:
        code = subprocess.run(
            [*command_of(program, build), *options, *arguments],
            env=environment(build, quick),
            stdout=log,
            stderr=subprocess.STDOUT,
        ).returncode
    print(f"{time.monotonic() - started:.0f} s")
    if code != 0:
        sys.exit(f"{program} ended with {code}; see {log.name}")
    text = result.read_text() if result.exists() else ""
    # A filter that nothing of a program matches leaves an empty file.
    return json.loads(text)["benchmarks"] if text.strip() else []


def collect(runs: list[dict], measured: Measured) -> list[str]:
    """Sorts runs by what they measure. Returns what went wrong in them."""
    errors = []
    for run in runs:
        if run["run_type"] != "iteration":
            continue
        key, side, *variant = [part for part in run["run_name"].split("/") if not HOW_MEASURED.search(part)]
        if run.get("error_occurred"):
            errors.append(f"{run['run_name']}: {run['error_message']}")
            continue
        measured[key, " ".join(variant)][side].append(run)
    return sorted(set(errors))


def collect_building(build: Path, quick: bool, measured: Measured) -> None:
    """Adds what building costs, in the shape of the runs."""
    figures = {"compile-file": "seconds", "binary-line": "bytes", "binary-file": "bytes"}
    started = time.monotonic()
    print("Building one file ... ", end="", flush=True)
    for key, sides in buildcost.measure(build / "benchmarks", rounds=1 if quick else 5).items():
        for side, values in sides.items():
            measured[key, ""][side] = [{figures[key]: value} for value in values]
    print(f"{time.monotonic() - started:.0f} s")


def collect_instructions(build: Path, measured: Measured) -> None:
    """Adds how many instructions a call takes, beside those that were accepted last."""
    started = time.monotonic()
    print("Counting instructions ... ", end="", flush=True)
    accepted = instructions.accepted()
    for kind, count in instructions.count(build).items():
        sides = measured[f"instructions-{kind}", ""]
        sides["ours"] = [{"instructions": count}]
        sides["accepted"] = [{"instructions": accepted[kind]}]
    print(f"{time.monotonic() - started:.0f} s")


def median(runs: list[dict], row: rows.Row) -> float:
    name = {"cpu": "cpu_time", "real": "real_time"}.get(row.figure, row.figure)
    value = statistics.median(run[name] for run in runs)
    if row.figure in ("cpu", "real"):
        nanoseconds = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[runs[0]["time_unit"]]
        return value * nanoseconds / {"ns": 1, "us": 1e3}[row.unit]
    return value


def words_of(variant: str) -> str:
    """The variant in words: "threads:2" is "2 threads"."""
    name, _, value = variant.partition(":")
    return f"{int(value):,} {name.replace('_', ' ')}" if value else name


def size_of(variant: str) -> int:
    return int(variant.partition(":")[2] or 0)


def entries_of(row: rows.Row, variant: str, sides: Sides, versions: dict[str, str]) -> list[dict]:
    """The entries of results.json that one row gives: one for each peer, or one without."""
    ours = median(sides["ours"], row) if "ours" in sides else None

    def is_installed(peer: str) -> bool:
        return versions.get(peer.split()[0], "part of the system") != ""

    def entry_of(peer: str | None, goal: float | None) -> dict:
        value = median(sides[peer], row) if peer in sides else None
        ratio = ours / value if ours is not None and value else None
        entry = {
            "row": f"{row.title} {words_of(variant)}".strip(),
            "ours": ours,
            "peer": peer,
            "peer_value": value,
            "unit": row.unit,
            "ratio": ratio,
            "goal": goal,
            "met": None if goal is None or ratio is None else ratio <= goal,
        }
        if peer is not None and value is None:
            entry["note"] = "not measured" if is_installed(peer) else "not installed"
        elif ours is None and not row.key.startswith("limit-"):
            entry["note"] = "ours was not measured"
        return entry

    # A peer without a goal may lack some variants: ours rotates among more archives than spdlog can keep.
    shown = [
        entry_of(peer, goal)
        for peer, goal in row.peers.items()
        if peer in sides or goal is not None or not is_installed(peer)
    ]
    return shown or [entry_of(None, None)]


def compare(measured: Measured, versions: dict[str, str]) -> tuple[list[dict], list[dict]]:
    """The entries with goals, and the others."""

    def entries(table: list[rows.Row]) -> list[dict]:
        found = []
        for row in table:
            variants = [variant for key, variant in measured if key == row.key]
            for variant in sorted(variants, key=size_of):
                found += entries_of(row, variant, measured[row.key, variant], versions)
        return found

    return entries(rows.ROWS), entries(rows.DETAILS)


def number(value: float | None) -> str:
    if value is None:
        return "-"
    return f"{value:,.0f}" if abs(value) >= 100 else f"{value:.3g}"


def print_table(title: str, entries: list[dict]) -> None:
    if not entries:
        return
    width = max(len(entry["row"]) for entry in entries)
    print(f"\n{title}\n{'':{width}}  {'ours':>9}      {'peer':<16} {'its':>9} {'ratio':>7} {'goal':>5}")
    last = None
    for entry in entries:
        row = entry["row"] if entry["row"] != last else ""
        ours, unit = (number(entry["ours"]), entry["unit"]) if row else ("", "")
        last = entry["row"]
        ratio = "" if entry["ratio"] is None else f"{entry['ratio']:.3f}"
        goal = "" if entry["goal"] is None else f"{entry['goal']:.2f}"
        verdict = entry.get("note", {True: "met", False: "MISSED", None: ""}[entry["met"]])
        peer, value = entry["peer"] or "", number(entry["peer_value"]) if entry["peer"] else ""
        comparison = f"{peer:<16} {value:>9} {ratio:>7} {goal:>5} {verdict}"
        print(f"{row:{width}}  {ours:>9} {unit:<4} {comparison}".rstrip())


def machine() -> str:
    load = ", ".join(f"{value:.2f}" for value in os.getloadavg())
    return f"{os.cpu_count()} cores, {platform.machine()}, Linux {platform.release()}, load average {load}"


def main(arguments: list[str]) -> int:
    if not arguments or arguments[0].startswith("-"):
        print(__doc__)
        return 2
    build, passed = Path(arguments[0]).resolve(), arguments[1:]
    quick = "--quick" in passed
    passed = [argument for argument in passed if argument != "--quick"]
    (build / "raw").mkdir(exist_ok=True)
    if any(argument.startswith("--benchmark_list_tests") for argument in passed):
        for program in rows.PROGRAMS:
            subprocess.run([str(build / "benchmarks" / program), *passed], check=True)
        return 0

    versions = json.loads((build / "benchmarks" / "peers.json").read_text())
    peers = ", ".join(f"{name} {version or 'not installed'}" for name, version in versions.items())
    print(f"{machine()}\nPeers: {peers}")
    measured: Measured = defaultdict(lambda: defaultdict(list))
    errors = []
    for program, repetitions in rows.PROGRAMS.items():
        errors += collect(run_program(program, repetitions, build, quick, passed), measured)
    if not any(argument.startswith("--benchmark_filter") for argument in passed):
        collect_building(build, quick, measured)
        collect_instructions(build, measured)

    goals, details = compare(measured, versions)
    print_table("With goals: ours must not be more than the goal times the peer's", goals)
    print_table("Further figures", details)
    (build / "results.json").write_text(json.dumps(goals + details, indent=2, ensure_ascii=False) + "\n")
    try:
        import chart

        chart.draw(goals, build / "results.svg")
    except ModuleNotFoundError as missing:
        print(f"\nNo chart was drawn: {missing}")
    print(f"\n{machine()}\n{build / 'results.json'}\n{build / 'results.svg'}")
    for error in errors:
        print(f"FAILED {error}", file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
