#!/usr/bin/env python3
"""Counts the instructions of the hot operations under callgrind, and compares them with the table that
is kept in the tree: `./dev bench --instructions`.

A count is that of one operation, and so are the allocations. One that has grown by more than 5 % is a
failure; one that has shrunk by more than that is worth a new table, which `--update` writes.
"""

import argparse
import pathlib
import shutil
import subprocess
import sys
import tempfile

TABLE = pathlib.Path(__file__).resolve().parent / "instructions.txt"
TOLERANCE = 0.05
SKIPPED = 77  # what ctest takes for a test that could not be run

# The same functions of the C library on every machine, whatever its processor has; and no lists of prefixes.
ENVIRONMENT = {"PATH": "/usr/bin:/bin", "GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX2,-ERMS,-FSRM"}

HEADING = """# Instructions and allocations of one operation, counted by callgrind in an optimised build.
# Compared by `./dev test`; written anew by `./dev bench --instructions --update`.
"""


def instructions_in(path):
    for line in path.read_text(errors="replace").splitlines():
        if line.startswith(("totals:", "summary:")):
            return int(line.split()[1])
    return 0


def counted(program):
    """Name to instructions and allocations of one round."""
    with tempfile.TemporaryDirectory() as directory:
        out = pathlib.Path(directory) / "out"
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", "--collect-atstart=no",
             "--toggle-collect=measuredRounds", "--dump-after=measuredRounds", program],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=ENVIRONMENT)
        if done.returncode != 0:
            sys.exit(f"instructions: {program}: status {done.returncode}\n{done.stderr}")
        result = {}
        for number, line in enumerate(done.stdout.splitlines(), start=1):
            name, rounds, allocations = line.split()
            instructions = instructions_in(pathlib.Path(f"{out}.{number}"))
            result[name] = (instructions / int(rounds), int(allocations) / int(rounds))
        return result


def kept():
    if not TABLE.exists():
        return {}
    fields = [line.split() for line in TABLE.read_text().splitlines() if line and not line.startswith("#")]
    return {name: (float(instructions), float(allocations)) for name, instructions, allocations in fields}


def write(counts):
    lines = [f"{name:<24}{instructions:>10.0f}{allocations:>8.2f}" for name, (instructions, allocations) in counts.items()]
    TABLE.write_text(HEADING + "\n".join(lines) + "\n")


def compared(counts, table):
    """Prints both side by side; what has grown, appeared or gone."""
    wrong = []
    print(f"{'operation':<24}{'kept':>10}{'now':>10}{'change':>9}{'allocations':>13}")
    for name in sorted({*counts, *table}):
        if name not in counts or name not in table:
            wrong.append(f"{name}: {'not counted any more' if name in table else 'not in the table'}")
            continue
        (now, allocations), (before, allocations_before) = counts[name], table[name]
        change = now / before - 1
        print(f"{name:<24}{before:>10.0f}{now:>10.0f}{change:>+9.1%}{allocations:>13.2f}")
        if change > TOLERANCE:
            wrong.append(f"{name}: {now:.0f} instructions, expected at most {before * (1 + TOLERANCE):.0f}")
        if allocations > allocations_before + 0.05:
            wrong.append(f"{name}: {allocations:.2f} allocations, expected {allocations_before:.2f}")
    return wrong


def main():
    parser = argparse.ArgumentParser(prog="./dev bench --instructions", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--update", action="store_true", help="write the table anew")
    parser.add_argument("program", type=pathlib.Path)
    chosen = parser.parse_args()
    if not shutil.which("valgrind"):
        print("valgrind is not installed: nothing was counted")
        sys.exit(SKIPPED)
    counts = counted(chosen.program)
    if chosen.update:
        write(counts)
        print(f"{TABLE}: {len(counts)} operations")
        return
    wrong = compared(counts, kept())
    for line in wrong:
        print(f"grown: {line}")
    if wrong:
        sys.exit(f"instructions: {len(wrong)} of {len(counts)} differ from {TABLE.name}; if that is meant to be, "
                 "./dev bench --instructions --update")


if __name__ == "__main__":
    main()
