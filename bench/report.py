"""The table of targets: printed, as JSON, and as a chart."""

import html
import json
import math
import statistics

from targets import ABSOLUTES


def shown(value, unit):
    if unit == "/s":
        return f"{value:,.0f} /s"
    if unit == "x":
        return f"{value:.2f}"
    return f"{value:.1f} {unit}".rstrip() if unit else f"{value:g}"


def middle(check, values):
    return shown(statistics.median(values), check.unit) if values else "-"


def between(check, values):
    """The lowest and the highest of several runs."""
    return f"{shown(min(values), check.unit)} - {shown(max(values), check.unit)}" if len(values) > 1 else ""


def tally(checks):
    words = [verdict.split(":")[0] for _, _, verdict in checks]
    return ", ".join(f"{words.count(word)} {word}" for word in ("met", "missed", "not measured"))


def absolutes(figures):
    """Name and value of what the ratios come from, and what the machine itself takes."""
    for name, subject in ABSOLUTES:
        values = [value for run in figures for value in run.get(subject, [])]
        if values:
            yield name, f"{statistics.median(values):,.1f} ns"


def print_table(checks, about, figures):
    for name, value in about.items():
        print(f"{name}: {value}")
    print(f"\n{'#':>2}  {'figure':<46} {'target':<14} {'measured':>14}  {'verdict':<14} runs")
    for check, values, verdict in checks:
        print(f"{check.row:>2}  {check.figure:<46} {check.wanted:<14} {middle(check, values):>14}  {verdict:<14} "
              f"{between(check, values)}".rstrip())
    print("\n" + tally(checks) + "\n")
    for name, value in absolutes(figures):
        print(f"{name:<58}{value:>14}")


def write_json(path, checks, about, runs, spread):
    def summary(name):
        values = [value for figures in runs for value in figures.get(name, [])]
        return {"median": round(statistics.median(values), 3), "spread": round(spread(values), 3),
                "values": [round(value, 3) for value in values]}

    path.write_text(json.dumps({
        "about": about,
        "targets": [{"row": check.row, "figure": check.figure, "target": check.wanted,
                     "measured": [round(value, 4) for value in values], "unit": check.unit, "verdict": verdict}
                    for check, values, verdict in checks],
        "figures": {name: summary(name) for name in sorted(set().union(*runs))},
    }, indent=1) + "\n")


BEGIN, END = "<!-- written by ./dev bench: begin -->", "<!-- end -->"


def write_page(path, checks, about, figures):
    """Exchanges the table in the page of figures."""
    before, _, rest = path.read_text().partition(BEGIN)
    _, _, after = rest.partition(END)
    lines = ["", "| " + " | ".join(about) + " |", "|" + "---|" * len(about),
             "| " + " | ".join(about.values()) + " |", "",
             "| # | figure | target | measured | lowest and highest run | verdict |", "|---|---|---|---|---|---|"]
    lines += [f"| {check.row} | {check.figure} | {check.wanted.replace('<', '&lt;')} | {middle(check, values)} "
              f"| {between(check, values)} | {verdict} |" for check, values, verdict in checks]
    lines += ["", f"{tally(checks)}.", "", "| what the ratios come from, with a million routes | time of one |", "|---|---|"]
    lines += [f"| {name} | {value} |" for name, value in absolutes(figures)]
    path.write_text(before + BEGIN + "\n".join(lines) + "\n" + END + after)


def instruction_figures(path):
    """Allocations of the hashes and of equality, from the table of instruction counts."""
    if not path.exists():
        return {}
    allocations = 0.0
    for line in path.read_text().splitlines():
        fields = line.split()
        if fields and fields[0] in ("row.keyHash", "row.rowHash", "row.keyEqual"):
            allocations += float(fields[2])
    return {"instructions#allocations": [allocations]}


# The chart: a bar for each check that was measured. Its length is how often the bound goes into the
# figure, or the figure into the bound where more is better, so that up to the line is good.

WIDTH, LEFT, LINE_HEIGHT = 960, 330, 17
DECADE = 210  # pixels for a factor of ten
ONE = LEFT + 230  # where the bound is


def excess(check, value):
    if check.bound == 0:
        return 0.1 if value == 0 else 10.0
    parts = value / check.bound if check.sense == "<=" else check.bound / max(value, 1e-12)
    return min(max(parts, 0.1), 10.0)


def write_chart(path, checks, about):
    measured = [(check, statistics.median(values), verdict) for check, values, verdict in checks if values]
    height = 64 + LINE_HEIGHT * len(measured)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" font-family="sans-serif" '
        'font-size="11">',
        f'<rect width="{WIDTH}" height="{height}" fill="#ffffff"/>',
        f'<text x="8" y="18" font-size="13">Targets: up to the line is met (logarithmic)</text>',
        f'<text x="8" y="34" fill="#666666">{html.escape(about["processor"])}, {about["date"]}, '
        f'load {about["load when it began"]}</text>',
    ]
    for place, (check, value, verdict) in enumerate(measured):
        y = 48 + LINE_HEIGHT * place
        end = ONE + DECADE * math.log10(excess(check, value))
        colour = "#2f7d4f" if verdict == "met" else "#c0392b"
        parts.append(f'<text x="{LEFT - 8}" y="{y + 11}" text-anchor="end">{check.row}  '
                     f'{html.escape(check.figure)}</text>')
        parts.append(f'<rect x="{LEFT}" y="{y + 2}" width="{max(end - LEFT, 2):.0f}" height="11" fill="{colour}"/>')
        parts.append(f'<text x="{max(end, LEFT) + 5:.0f}" y="{y + 11}">{html.escape(shown(value, check.unit))} '
                     f'({html.escape(check.wanted)})</text>')
    parts.append(f'<line x1="{ONE}" x2="{ONE}" y1="44" y2="{height - 12}" stroke="#222222"/>')
    path.write_text("\n".join(parts) + "\n</svg>\n")
