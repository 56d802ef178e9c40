"""What using a logger costs while building: the time to compile one file, and what it adds to the program.

Compiles benchmarks/buildcost/*.cpp with the flags that CMake has left in buildcost.json: without a logger,
with one, and with one line logged as well. Every round compiles each file once.
"""

import json
import resource
import subprocess
from pathlib import Path

SOURCES = Path(__file__).parent / "buildcost"
VARIANTS = {"bare": [], "logger": ["-DWITH_LOGGER"], "line": ["-DWITH_LOGGER", "-DWITH_LINE"]}


def compile_seconds(command: list[str]) -> float:
    """Runs the compiler; the processor time that it took."""

    def used() -> float:
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime

    before = used()
    subprocess.run(command, check=True)
    return used() - before


def program_bytes(program: Path) -> int:
    """Code and data of a program, as size(1) counts them."""
    listing = subprocess.run(["size", str(program)], check=True, capture_output=True, text=True).stdout
    text, data = listing.splitlines()[1].split()[:2]
    return int(text) + int(data)


def measure(build: Path, rounds: int) -> dict[str, dict[str, list[float]]]:
    """The figures by key and side: {"compile-file": {"ours": [seconds of each round]}, …}."""
    flags = json.loads((build / "buildcost.json").read_text())
    (compiler,) = flags.pop("compiler")
    output = build / "buildcost"
    output.mkdir(exist_ok=True)

    def compiled(side: str, variant: str) -> float:
        options = [option for option in flags[side] if option.startswith("-")]
        target = ["-c", str(SOURCES / f"{side}.cpp"), "-o", str(output / f"{side}-{variant}.o")]
        return compile_seconds([compiler, *options, *VARIANTS[variant], *target])

    seconds: dict[str, list[float]] = {side: [] for side in flags}
    for _ in range(rounds):
        for side in flags:
            seconds[side].append(compiled(side, "line"))

    sizes: dict[str, dict[str, int]] = {side: {} for side in flags}
    for side, options in flags.items():
        libraries = [option for option in options if not option.startswith("-")]
        for variant in VARIANTS:
            if variant != "line":
                compiled(side, variant)
            program = output / f"{side}-{variant}"
            # A library that nothing is used of must not count.
            linking = ["-o", str(program), "-Wl,--as-needed", *libraries]
            subprocess.run([compiler, f"{program}.o", *linking], check=True)
            sizes[side][variant] = program_bytes(program)

    return {
        "compile-file": seconds,
        "binary-line": {side: [size["line"] - size["logger"]] for side, size in sizes.items()},
        "binary-file": {side: [size["line"] - size["bare"]] for side, size in sizes.items()},
    }


