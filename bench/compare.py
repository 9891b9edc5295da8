#!/usr/bin/env python3
"""Runs the benchmarks and says which targets are met: `./dev bench`.

Subjects and what they are compared with take turns in random order, several times; a figure is the
median. The table is printed, and written with all figures as JSON and as a chart.
"""

import argparse
import json
import os
import pathlib
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

import programs
import report
import targets

TREE = pathlib.Path(__file__).resolve().parent.parent

# A program each, so that one does not find the memory of another. Subjects of a part take turns.
PARTS = {
    "rows": r"^BM_(Row|Flatbuffers|Protobuf|Capnproto|Group|Bare_(Allocation|EntryCopy|Packed|Key|Row|Two))",
    "machine": r"^BM_Bare_(RandomAccess|SequentialRead/routes:1000000$)",
    "tables": r"^BM_(Table|Absl|Boost|Lmdb|StdMap)[A-Za-z_]+/routes:1000000$",
    "adapters": r"^BM_((Adapter(Row|Find|Scan)[A-Za-z_]+|TableFind_Hit|AbslInsert_Fresh)/routes:1000000"
                r"|Bare_Allocation|RowFromEntry/IpDestination)$",
    "log": r"^BM_(Change|Maps)Log[A-Za-z_]+/routes:(1000|1000000)$",
    "start": r"^BM_AdaptersBuilt",
    "memory": r"^BM_Memory_PerRoute",
    "followers": r"^BM_(Follow|Visible|Redis|Bare_(Ping|Futex))",
}
FULL_PARTS = {
    "small tables": r"^BM_(Table|Absl|Boost|Lmdb|StdMap|Adapter[A-Za-z_]+|Bare_Sequential)[A-Za-z_]+/routes:(1000|100000)$",
}
# Figures that another part has, too.
MARKS = {"adapters": targets.beside("")}
# What is compared with itself at another size takes turns with that.
GROWTH = r"^BM_(Table(Insert_Fresh|Find_Hit|Scan)|ChangeLogRecord_Fresh)/routes:10?000000$"
# Without what no target is about.
QUICK_PARTS = {"tables": r"^BM_(Table|Absl|Boost|Lmdb)[A-Za-z_]+/routes:1000000$"}
# What a 32-bit program is asked, in turns with the 64-bit one: only what a target is about.
WORD_SIZES = "^(" + "|".join(re.escape(name) for name in targets.SUBJECTS_32) + ")$"


class Figures(dict):
    """The values of each figure of one run, by name."""

    def add(self, name, value):
        self.setdefault(name, []).append(value)

    def medians(self):
        return Medians({name: statistics.median(values) for name, values in self.items()})


class Medians(dict):
    """One value for each figure; one that was not measured says so."""

    def __missing__(self, name):
        raise NotMeasured(name)


class NotMeasured(Exception):
    pass


def take(figures, document, mark=""):
    """The figures in what a benchmark program has written."""
    for run in document["benchmarks"]:
        if run.get("run_type") != "iteration":
            continue
        if run.get("error_occurred"):
            print(f"{run['name']}: {run['error_message']}", file=sys.stderr)
            continue
        name = mark + re.sub(r"/(iterations:\d+|manual_time)", "", run["run_name"])
        if run.get("items_per_second"):
            figures.add(name, 1e9 / run["items_per_second"])
        for key, value in run.items():
            if "bytes" in key:
                figures.add(f"{name}#{key}", value)


def run_part(program, name, filter_, repetitions, seconds, directory):
    """What the program writes of the subjects that the filter chooses."""
    out = pathlib.Path(directory) / "part.json"
    command = [program, f"--benchmark_filter={filter_}", f"--benchmark_min_time={seconds}",
               f"--benchmark_repetitions={repetitions}", "--benchmark_enable_random_interleaving=true",
               f"--benchmark_out={out}", "--benchmark_out_format=json"]
    started = time.monotonic()
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit(f"bench: {name}: status {done.returncode}\n{done.stderr}")
    print(f"  {name}: {time.monotonic() - started:.0f} s", file=sys.stderr)
    return json.loads(out.read_text() or '{"benchmarks": []}')


def commit():
    """What was measured: the commit, with a mark when the tree has changes that are in none."""
    done = subprocess.run(["git", "-C", TREE, "describe", "--always", "--dirty"], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True)
    return done.stdout.strip() or "unknown"


def machine(context, measured):
    model = "unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    memory = int(pathlib.Path("/proc/meminfo").read_text().split()[1]) / 2**20
    return {
        "processor": f"{os.cpu_count()} x {model}",
        "memory": f"{memory:.0f} GiB",
        "kernel": os.uname().release,
        "compiler": context.get("compiler", ""),
        "build": "Release",
        "commit": measured,
        "prefixes": context.get("prefixes", ""),
        "peers not here": context.get("peers_not_here", "") or "none",
    }


def judged(check, runs):
    """The check's values, one for each run, and the verdict on the middle one."""
    try:
        values = [check.value(medians) for medians in runs]
    except NotMeasured as missing:
        return [], f"not measured: no {missing}"
    value = statistics.median(values)
    held = value <= check.bound if check.sense == "<=" else value >= check.bound
    return values, "met" if held else "missed"


def spread(values):
    """Half the distance between the quartiles, in parts of the median."""
    if len(values) < 2:
        return 0.0
    low, _, high = statistics.quantiles(values, n=4)
    middle = statistics.median(values)
    return (high - low) / 2 / middle if middle else 0.0


def options():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true", help="in about two minutes: a million routes only, and 64 bits")
    parser.add_argument("--prefixes", metavar="DIR", default=os.environ.get("ROUTING_PREFIXES", ""),
                        help="lists of real prefixes, one a line, plain or gzip (default: $ROUTING_PREFIXES)")
    parser.add_argument("--repetitions", type=int, default=5, metavar="N", help="turns of each subject (default: 5)")
    parser.add_argument("--runs", type=int, default=1, metavar="N", help="do it all so many times (default: 1)")
    parser.add_argument("--only", action="append", choices=[*PARTS, *FULL_PARTS, "ten million", "32 bits", "programs"],
                        help="this part; may be repeated")
    parser.add_argument("--out", type=pathlib.Path, metavar="DIR",
                        help="where figures and chart go (default: docs/performance; --quick and --only: build/performance)")
    parser.add_argument("--build", type=pathlib.Path, metavar="DIR", default=TREE / "build/release",
                        help="the build to measure (default: build/release)")
    parser.add_argument("--program-32", type=pathlib.Path, metavar="PROGRAM",
                        help="the benchmarks as a 32-bit program (default: without)")
    chosen = parser.parse_args()
    if chosen.repetitions < 5:
        parser.error(f"--repetitions: expected 5 or more, found {chosen.repetitions}")
    if chosen.prefixes and not pathlib.Path(chosen.prefixes).is_dir():
        parser.error(f"--prefixes: expected a directory with lists of prefixes, found \"{chosen.prefixes}\"")
    if chosen.program_32 and not chosen.program_32.exists():
        parser.error(f"--program-32: expected a program, found nothing at \"{chosen.program_32}\"")
    if not (chosen.build / "bin/benchmarks").exists():
        parser.error(f"--build: expected a build with bin/benchmarks, found none in \"{chosen.build}\"")
    if chosen.runs < 1:
        parser.error(f"--runs: expected 1 or more, found {chosen.runs}")
    return chosen


def measure(chosen, directory):
    figures = Figures()
    context, failures = {}, []
    bench = chosen.build / "bin/benchmarks"
    parts = {**PARTS, **QUICK_PARTS} if chosen.quick else {**PARTS, **FULL_PARTS}
    wanted = chosen.only or [*parts, "programs", *([] if chosen.quick else ["ten million", "32 bits"])]
    seconds = 0.02 if chosen.quick else 0.2

    def part(name, filter_, program=bench, repetitions=chosen.repetitions, mark=""):
        document = run_part(program, name, filter_, repetitions, seconds, directory)
        if program == bench:
            context.update(document["context"])
        take(figures, document, mark)

    for name, filter_ in parts.items():
        if name in wanted:
            part(name, filter_, mark=MARKS.get(name, ""))
    if "ten million" in wanted:
        part("ten million", GROWTH, mark="growth ")
    if "32 bits" in wanted and chosen.program_32:
        for _ in range(chosen.repetitions):
            part("64 bits", WORD_SIZES, repetitions=1, mark="m64 ")
            part("32 bits", WORD_SIZES, chosen.program_32, repetitions=1, mark="m32 ")
    if "programs" in wanted:
        started = time.monotonic()
        failures = programs.measure(figures, chosen.build / "bin", directory, chosen.quick)
        print(f"  programs: {time.monotonic() - started:.0f} s", file=sys.stderr)
    figures.update(report.instruction_figures(TREE / "bench/instructions.txt"))
    return figures, context, failures


def judged_all(chosen, figures, about):
    """Each target with the values of the runs so far and the verdict, and what the runs were."""
    runs = [measured.medians() for measured in figures]
    checks = [(check, *judged(check, runs)) for check in targets.CHECKS]
    if chosen.only:
        checks = [entry for entry in checks if entry[1]]
    return checks, about | {"date": time.strftime("%Y-%m-%d"), "runs": str(len(figures)),
                            "repetitions": str(chosen.repetitions), "quick": str(chosen.quick).lower()}


def main():
    chosen = options()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("bench: ended by a signal"))  # and tidies up
    load, measured_commit = os.getloadavg()[0], commit()
    directory = tempfile.mkdtemp(prefix="routing-bench-", dir="/dev/shm")
    os.environ["ROUTING_BENCH_DIR"] = directory
    if chosen.prefixes:
        os.environ["ROUTING_PREFIXES"] = str(pathlib.Path(chosen.prefixes).resolve())
    out = chosen.out or TREE / ("build/performance" if chosen.quick or chosen.only else "docs/performance")
    out.mkdir(parents=True, exist_ok=True)
    figures, failures = [], []
    try:
        for run in range(chosen.runs):
            print(f"run {run + 1} of {chosen.runs}", file=sys.stderr)
            measured, context, failed = measure(chosen, directory)
            figures.append(measured)
            failures += failed
            # After each, so that what was measured is there even if the next one is ended.
            checks, about = judged_all(chosen, figures, machine(context, measured_commit) | {"load when it began": f"{load:.1f}"})
            report.write_json(out / "figures.json", checks, about, figures, spread)
            report.write_chart(out / "targets.svg", checks, about)
            if out == TREE / "docs/performance":
                report.write_page(out.parent / "performance.md", checks, about, figures)
    finally:
        shutil.rmtree(directory, ignore_errors=True)
    report.print_table(checks, about, figures)
    print(f"\nfigures and chart: {out}/figures.json, {out}/targets.svg")
    if failures:
        sys.exit("bench: not measured: " + "\nbench: not measured: ".join(failures))


if __name__ == "__main__":
    main()
