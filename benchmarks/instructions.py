#!/usr/bin/env python3
"""Counts the instructions of a call, and compares them with the counts that were accepted last.

    benchmarks/instructions.py BUILD-FOLDER [--update]

BUILD-FOLDER is one in which CMake has built the target "InstructionsBenchmark". Prints a table; ends with 1 if a
count is more than 5 % above the one in benchmarks/instructions.json. --update accepts the counts as they are.

Unlike times, counts do not depend on what else the machine does. Callgrind counts two runs of different length, and
the difference divided by the number of calls is a call's: what happens once cancels out. Runs have an environment
that is the same everywhere, and a processor with as few extensions as the C library knows how to do without.
"""

import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ACCEPTED = Path(__file__).parent / "instructions.json"
TOLERANCE = 1.05

# What is counted, as the program and instructions.json call it.
TITLES = {
    "below-level": "call below every destination's level",
    "composed": "composing a line with the default columns",
    "queued": "queueing a line, on the calling thread",
    "preference-read": "reading a preference",
}

# The calls of the two runs; multiples of the lines that the program queues at once.
SHORT, LONG = 1_000, 11_000

PLAIN_PROCESSOR = "-AVX512F,-AVX512VL,-AVX512BW,-AVX512DQ,-AVX512CD,-AVX2,-AVX,-AVX_Fast_Unaligned_Load,-BMI1,-BMI2,-LZCNT,-MOVBE,-RTM,-ERMS,-FSRM,-SSE4_2,-SSE4_1,-SSSE3,-POPCNT"


def instructions_of_run(program: Path, kind: str, calls: int) -> int:
    with tempfile.TemporaryDirectory() as folder:
        environment = {
            "PATH": "/usr/bin:/bin",
            "HOME": folder,
            "XDG_CONFIG_HOME": folder,
            "LC_ALL": "C",
            "TZ": "UTC",
            "GLIBC_TUNABLES": f"glibc.cpu.hwcaps={PLAIN_PROCESSOR}",
        }
        command = [
            "valgrind",
            "--tool=callgrind",
            "--toggle-collect=velora_counted",
            "--callgrind-out-file=/dev/null",
            str(program),
            kind,
            str(calls),
            folder,
        ]
        run = subprocess.run(command, env=environment, capture_output=True, text=True)
    collected = re.search(r"Collected\s*:\s*(\d+)", run.stderr)
    if run.returncode != 0 or collected is None or int(collected[1]) == 0:
        sys.exit(f"{' '.join(command)} ended with {run.returncode}:\n{run.stderr}")
    return int(collected[1])


def count(build: Path) -> dict[str, float]:
    """The instructions of one call of each kind."""
    program = build / "benchmarks" / "instructions" / "InstructionsBenchmark"
    counts = {}
    for kind in TITLES:
        short, long = (instructions_of_run(program, kind, calls) for calls in (SHORT, LONG))
        counts[kind] = round((long - short) / (LONG - SHORT), 1)
    return counts


def accepted() -> dict[str, float]:
    return json.loads(ACCEPTED.read_text())


def main(arguments: list[str]) -> int:
    folders = [argument for argument in arguments if argument != "--update"]
    if len(folders) != 1 or folders[0].startswith("-"):
        print(__doc__)
        return 2
    counts = count(Path(folders[0]).resolve())
    if "--update" in arguments:
        ACCEPTED.write_text(json.dumps(counts, indent=2) + "\n")
        print(f"Accepted: {ACCEPTED}")
    before = accepted()
    grown = []
    for kind, title in TITLES.items():
        ratio = counts[kind] / before[kind]
        print(f"{title:45} {counts[kind]:8,.1f} instructions, accepted {before[kind]:8,.1f}, {100 * (ratio - 1):+.1f} %")
        if ratio > TOLERANCE:
            grown.append(kind)
    if grown:
        print(
            f"More than {100 * (TOLERANCE - 1):.0f} % above what was accepted: {', '.join(grown)}.\n"
            "See where they go with valgrind --tool=callgrind --toggle-collect=velora_counted on\n"
            "InstructionsBenchmark, and callgrind_annotate. If what they buy is worth it, or the compiler or the\n"
            "C library is another one now, accept them: scripts/check-instructions.sh --update, and say why in the\n"
            "commit.",
            file=sys.stderr,
        )
    return 1 if grown else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
