"""What is compared: every row of the report, its peers and the goals. The only place that names them.

A benchmark is called KEY/SIDE or KEY/SIDE/VARIANT, as in "composed/spdlog" or "threads/ours/threads:2". A row
shows one figure of one key: ours, beside that of each peer.
"""

from dataclasses import dataclass, field

import instructions

# How often each program measures everything; the order of all measurements is random.
PROGRAMS = {
    "LoggingBenchmark": 15,
    "PreferencesBenchmark": 11,
    "LoggingDetailsBenchmark": 5,
    "PreferencesDetailsBenchmark": 3,
    "DispatchQueueBenchmark": 5,
    "MemoryBenchmark": 1,
}

# Sides that are no packages: the system itself.
BARE = "bare "


@dataclass(frozen=True)
class Row:
    key: str
    title: str
    # "cpu" or "real": the time of one call in nanoseconds; or the name of a counter of the benchmark.
    figure: str = "cpu"
    unit: str = "ns"
    # Each peer and the most that ours may be of its figure; None where it is shown for information.
    peers: dict[str, float | None] = field(default_factory=dict)


# The rows that have goals, and the peers that do the same work.
ROWS = [
    Row(
        "below-level",
        "call below every destination's level",
        peers={"spdlog": 0.25, "log4cplus": None, "Boost.Log": None, "glog": None},
    ),
    Row(
        "composed",
        "composing a line with the default columns",
        peers={"spdlog": 0.3, "log4cplus": None, "Boost.Log": None, "glog": None, "bare copies": None},
    ),
    Row(
        "file-kernel",
        "one line to a file, in the kernel when the call returns",
        peers={"bare write": 1.15, "spdlog": 0.7, "log4cplus": None, "Boost.Log": None, "glog": None},
    ),
    Row(
        "file-buffered",
        "one line to a file, held in a buffer",
        peers={"spdlog": 0.3, "log4cplus": None, "Boost.Log": None, "glog": None},
    ),
    Row(
        "queue-end-to-end",
        "one line through a queue, end to end",
        figure="each_ns",
        peers={"spdlog": 0.27},
    ),
    Row(
        "queue-caller",
        "the caller's share of a queued line, median",
        figure="p50_ns",
        peers={"spdlog": 0.25, "bare timing": None},
    ),
    Row(
        "queue-caller",
        "the caller's share of a queued line, 99 of 100",
        figure="p99_ns",
        peers={"spdlog": 0.25, "bare timing": None},
    ),
    Row(
        "preference-read",
        "reading a preference, fresh",
        peers={"QSettings stale": 0.15, "QSettings fresh": None, "GSettings": None},
    ),
    Row(
        "preference-write",
        "writing a preference, durable",
        figure="real",
        unit="us",
        peers={"QSettings": 0.5, "GSettings": None},
    ),
]

SPDLOG = {"spdlog": None}
PREFERENCES = {"QSettings stale": None, "QSettings fresh": None, "GSettings": None}

# What is measured without a goal.
DETAILS = [
    *[
        Row(f"instructions-{kind}", f"instructions: {title}", "instructions", "ins.", peers={"accepted": None})
        for kind, title in instructions.TITLES.items()
    ],
    Row("queue-caller", "the caller's share of a queued line, 999 of 1,000", "p999_ns", peers=SPDLOG),
    Row("queue-caller", "the caller's share of a queued line, longest", "max_ns", peers=SPDLOG),
    Row("direct-caller", "the caller's share without a queue, median", "p50_ns", peers=SPDLOG),
    Row("direct-caller", "the caller's share without a queue, 99 of 100", "p99_ns", peers=SPDLOG),
    Row("direct-caller", "the caller's share without a queue, 999 of 1,000", "p999_ns", peers=SPDLOG),
    Row("direct-caller", "the caller's share without a queue, longest", "max_ns", peers=SPDLOG),
    Row("kept-buffered", "one line held in a buffer that outlives a crash"),
    Row("kept-end-to-end", "one line through a queue that outlives a crash, end to end", "each_ns"),
    Row("kept-caller", "the caller's share of such a line, median", "p50_ns"),
    Row("kept-caller", "the caller's share of such a line, 99 of 100", "p99_ns"),
    Row("threads", "one line to a file, by", "real", peers=SPDLOG),
    Row("message-size", "one line to a file, message of", peers=SPDLOG),
    Row("non-ascii", "one line to a file, text that is not ASCII", peers=SPDLOG),
    Row("destinations", "composing for", peers=SPDLOG),
    Row("filter-none", "composing, an empty list of filters and formatters"),
    Row("filter-none-tagged", "composing with a tag, no filter"),
    Row("filter-tag-passes", "composing with a tag, a tag filter that lets it pass"),
    Row("filter-tag-drops", "composing with a tag, a tag filter that drops it"),
    Row("filter-file-name", "composing, a file-name filter that lets it pass"),
    Row("formatter-colours", "composing, terminal colours"),
    Row("formatter-base64", "composing, Base64"),
    Row("rotating-line", "one line to a file that may rotate, in the kernel", peers=SPDLOG),
    Row("rotation", "rotation among others'", "real", "us", peers=SPDLOG),
    Row("stored-read", "reading an integer of a store with", peers={"QSettings stale": None}),
    Row("stored-write", "writing an integer to a store with", "real", "us", peers={"QSettings": None}),
    Row("read-bool", "reading a truth value", peers=PREFERENCES),
    Row("read-bool-threads", "reading a truth value, by"),
    Row("read-string", "reading a text", peers=PREFERENCES),
    Row("preference-read-threads", "reading a preference, by", peers={"QSettings stale": None}),
    Row("register-and-read", "registering a default, then reading it"),
    Row("read-while-written", "reading while another process writes,"),
    Row("queued-work-end-to-end", "a piece of work on a queue, end to end", "each_ns", peers=SPDLOG),
    Row("queued-closure-end-to-end", "a closure on a queue, end to end", "each_ns"),
    Row("queued-work-caller", "handing work to a queue, median", "p50_ns", peers=SPDLOG),
    Row("queued-work-caller", "handing work to a queue, 99 of 100", "p99_ns", peers=SPDLOG),
    Row("queued-closure-caller", "handing a closure to a queue, median", "p50_ns"),
    Row("allocations-below-level", "allocations of a call below level", "allocations", "", peers=SPDLOG),
    Row("allocations-file", "allocations of a line to a file", "allocations", "", peers=SPDLOG),
    Row("allocations-queue", "allocations of a line through a queue", "allocations", "", peers=SPDLOG),
    Row("idle-logger", "memory held by an idle logger with one destination", "bytes", "B", peers=SPDLOG),
    Row("compile-file", "compiling a file that logs one line", "seconds", "s", peers=SPDLOG),
    Row("binary-line", "what the line adds to the program", "bytes", "B", peers=SPDLOG),
    Row("binary-file", "what a file with logger and line adds", "bytes", "B", peers=SPDLOG),
    Row("limit-clock", "limit: reading the clock", peers={"clock_gettime": None}),
    Row("limit-copy", "limit: copying a finished line", peers={"memcpy": None}),
]
