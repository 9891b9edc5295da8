#!/usr/bin/env python3
"""What the tests of a build with clang's coverage have reached of some folders, line by line and
branch by branch. A branch is a condition of the source; it is taken when the condition has been true
and false, in whichever instance of a template. Those that were not are looked up in a page that says
why; what the page does not say, or says of a branch that was taken, is an error.
"""

import argparse
import collections
import json
import pathlib
import re
import subprocess
import sys

TREE = pathlib.Path(__file__).resolve().parents[2]

# - `platform/Shoal/Memory.cpp`: `all == MAP_FAILED` is never true
EXPLAINED = re.compile(r"^- `([^`]+)`: `([^`]+)` is never (true|false)( \(\d+ times\))?$")


def output_of(*command):
    return subprocess.run([str(part) for part in command], check=True, stdout=subprocess.PIPE, text=True).stdout


def objects_by_id(build):
    """The programs and libraries of a build by the build id that their profiles name them by."""
    found = {}
    for file in [*build.glob("bin/*"), *build.glob("lib/**/*.so")]:
        if id_ := re.search(r"Build ID: ([0-9a-f]+)", output_of("readelf", "-n", file)):
            found[id_[1]] = file
    return found


def profiles_by_id(directory):
    found = collections.defaultdict(list)
    for raw in directory.glob("*.profraw"):
        found[output_of("llvm-profdata", "show", "--binary-ids", raw).split()[-1]].append(raw)
    return found


class Coverage:
    """How often each line was reached, and each condition true and false, in all objects together."""

    def __init__(self, folders):
        self.folders = folders
        self.lines = collections.Counter()
        self.branches = collections.defaultdict(lambda: [0, 0])

    def file(self, name):
        """The file's name in the tree, if it is in one of the folders."""
        path = pathlib.Path(name).resolve()
        name = str(path.relative_to(TREE)) if path.is_relative_to(TREE) else ""
        return name if any(name.startswith(f"{folder}/") for folder in self.folders) else None

    def add(self, object_, profile):
        report = json.loads(output_of("llvm-cov", "export", "-format=text", "-instr-profile", profile, object_))
        for entry in report["data"][0]["files"]:
            if name := self.file(entry["filename"]):
                for *place, true, false, _, _, _ in entry["branches"]:
                    self.branches[name, *place][0] += true
                    self.branches[name, *place][1] += false
        name = None
        for line in output_of("llvm-cov", "export", "-format=lcov", "-instr-profile", profile, object_).splitlines():
            if line.startswith("SF:"):
                name = self.file(line[3:])
            elif name and line.startswith("DA:"):
                number, count = line[3:].split(",")[:2]
                self.lines[name, int(number)] += int(count)


def condition(source, line, column, end_line, end_column):
    if line == end_line:
        return source[line - 1][column - 1:end_column - 1]
    parts = [source[line - 1][column - 1:], *source[line:end_line - 1], source[end_line - 1][:end_column - 1]]
    return " ".join(part.strip() for part in parts)


def folder_of(name):
    """The room; what is below it counts as the room's."""
    return re.sub("/detail$", "", str(pathlib.PurePath(name).parent))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="the build whose tests have run")
    parser.add_argument("--profiles", type=pathlib.Path, required=True, help="where they have left what they reached")
    parser.add_argument("--least", type=float, required=True, help="per cent of the lines of each folder")
    parser.add_argument("--explained", type=pathlib.Path, required=True, help="the page about branches that are not taken")
    parser.add_argument("folders", nargs="+")
    chosen = parser.parse_args()

    coverage = Coverage(chosen.folders)
    objects = objects_by_id(chosen.build)
    for id_, raws in sorted(profiles_by_id(chosen.profiles).items()):
        merged = chosen.profiles / f"{id_}.profdata"
        output_of("llvm-profdata", "merge", "-o", merged, *raws)
        coverage.add(objects[id_], merged)
    if not coverage.lines:
        sys.exit("coverage: no lines: expected profiles of the tests")

    totals = collections.defaultdict(lambda: [0, 0, 0, 0])
    missed_lines, missed_branches = collections.defaultdict(list), collections.Counter()
    for (name, line), count in sorted(coverage.lines.items()):
        totals[folder_of(name)][0] += 1
        totals[folder_of(name)][1] += count != 0
        if count == 0:
            missed_lines[name].append(line)
    places = collections.defaultdict(list)
    for (name, *place), (true, false) in sorted(coverage.branches.items()):
        if true == 0 and false == 0:
            continue  # known to the compiler, or in a line that was not reached
        totals[folder_of(name)][2] += 2
        totals[folder_of(name)][3] += (true != 0) + (false != 0)
        if true == 0 or false == 0:
            source = (TREE / name).read_text().splitlines()
            what = name, condition(source, *place), "true" if true == 0 else "false"
            missed_branches[what] += 1
            places[what].append(place[0])

    print(f"\n{'folder':<30} {'lines':>8} {'reached':>8} {'branches':>9} {'taken':>8}")
    low = False
    for folder, (lines, reached, branches, taken) in sorted(totals.items()):
        share = 100 * reached / lines
        low |= share < chosen.least
        print(f"{folder:<30} {lines:>8} {share:>7.1f}% {branches:>9} {100 * taken / max(branches, 1):>7.1f}%"
              + (f"  below {chosen.least:g} %" if share < chosen.least else ""))
    print("\nlines that were not reached:")
    for name, lines in missed_lines.items():
        print(f"  {name}: {', '.join(map(str, lines))}")
    print()

    explained = collections.Counter()
    for line in chosen.explained.read_text().splitlines():
        if said := EXPLAINED.match(line):
            explained[said.group(1, 2, 3)] += int(said[4].strip(" (times)")) if said[4] else 1
    unexplained = missed_branches - explained
    stale = explained - missed_branches
    for (name, text, never), times in sorted(unexplained.items()):
        lines = ", ".join(map(str, places[name, text, never]))
        more = f" ({times} times)" if times > 1 else ""
        print(f"not explained, line {lines}:\n- `{name}`: `{text}` is never {never}{more}")
    for (name, text, never), times in sorted(stale.items()):
        print(f"explained, but taken or gone:\n- `{name}`: `{text}` is never {never}")
    print(f"\nbranches not taken: {missed_branches.total()}, not explained: {unexplained.total()}, "
          f"explained without need: {stale.total()}")
    sys.exit(1 if low or unexplained else 0)


if __name__ == "__main__":
    main()
