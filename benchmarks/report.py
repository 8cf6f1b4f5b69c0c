#!/usr/bin/env python3
"""Reads the figures of benchmark runs, judges them by goals.json and shows them.

  report.py collect DIRECTORY RESULTS     makes one file of what the programs have left behind
  report.py judge RESULTS                 prints all ratios; fails when one lies outside its band
  report.py document PAGE RESULTS...      puts the tables of some runs into a page, between its marks
  report.py plot DIRECTORY RESULTS...     draws them, as SVG
"""

import argparse
import json
import os
import pathlib
import platform
import re
import statistics
import subprocess
import time

GROUPS = json.loads((pathlib.Path(__file__).parent / "goals.json").read_text())


# Collecting

def unit_figures(report):
    """Of a report by Google Benchmark: the rounds of each unit and of its floor, in pairs."""
    times, units = {}, {}
    for run in report["benchmarks"]:
        if run["run_type"] == "iteration":
            if run.get("error_occurred"):
                raise SystemExit(f"{run['name']}: {run['error_message']}")
            name, jobs = run["run_name"].split("/")[:2]
            times.setdefault((name, int(jobs)), {})[run["repetition_index"]] = run["cpu_time"]
            units[name] = run["time_unit"]
    for (name, jobs), measured in times.items():
        if not name.endswith("-floor"):
            floor = times[f"{name}-floor", jobs]
            yield {"name": name, "jobs": jobs, "unit": units[name],
                   "rounds": [{"measured": measured[i], "floor": floor[i]} for i in sorted(measured)]}


def growth_figures(figures):
    """Of the loads: what a job takes in a file of each size, over what one takes in the smallest."""
    loads = {f["jobs"]: f for f in figures if f["name"] == "load"}
    smallest = min(loads)
    for jobs, load in loads.items():
        if jobs != smallest:
            rounds = [{"measured": large["measured"] / jobs, "floor": small["measured"] / smallest}
                      for large, small in zip(load["rounds"], loads[smallest]["rounds"])]
            yield {"name": "load, each job", "jobs": jobs, "unit": load["unit"], "rounds": rounds}


def instruction_figures(lines):
    """Of lines "UNIT JOBS TIMES INSTRUCTIONS", two for each unit: what one time more takes."""
    counts = {}
    for line in lines:
        unit, jobs, times, instructions = line.split()
        counts.setdefault((unit, int(jobs)), []).append((int(times), int(instructions)))
    each = {}
    for key, ((few, least), (many, most)) in counts.items():
        each[key] = (most - least) / (many - few)
    for (unit, jobs), measured in each.items():
        if not unit.endswith("-floor"):
            yield {"name": f"{unit} instructions", "jobs": jobs, "unit": "",
                   "rounds": [{"measured": measured, "floor": each[f"{unit}-floor", jobs]}]}


def machine():
    processors = re.findall(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    memory = int(re.search(r"MemTotal:\s*(\d+)", pathlib.Path("/proc/meminfo").read_text())[1])
    return {"processor": processors[0] if processors else platform.machine(),
            "processors": os.cpu_count(), "memory": f"{memory / 2**20:.0f} GiB",
            "kernel": "Linux " + platform.release().split("-")[0]}


def collect(directory, results):
    figures = json.loads((directory / "daemon.json").read_text())
    figures += unit_figures(json.loads((directory / "units.json").read_text()))
    figures += growth_figures(figures)
    figures += instruction_figures((directory / "instructions").read_text().splitlines())
    run = {"date": time.strftime("%Y-%m-%d %H:%M"), "effort": (directory / "effort").read_text().strip(),
           "machine": machine(), "figures": figures}
    results.write_text(json.dumps(run, indent=1) + "\n")


# Judging

class Row:
    """What one run has found for one row of goals.json, and whether that meets the goal."""

    def __init__(self, goal, figure):
        pick = max if goal.get("longest") else statistics.median
        rounds = figure["rounds"]
        floors = [goal.get("floor", r["floor"]) for r in rounds]
        self.goal, self.unit = goal, figure["unit"]
        self.bound = goal.get("at_most", goal.get("at_least"))  # none where it is a time
        self.measured = pick(r["measured"] for r in rounds)
        self.floor = statistics.median(floors)
        self.ratio = pick(r["measured"] / floor for r, floor in zip(rounds, floors))
        self.judged = pick((r["measured"] - goal.get("plus", 0)) / floor for r, floor in zip(rounds, floors))

    def meets(self, bound):
        return self.judged >= bound if "at_least" in self.goal else self.judged <= bound

    def meets_goal(self):
        if "limit" in self.goal:
            return self.measured <= self.goal["limit"]
        return self.meets(self.bound)

    def is_inside_band(self):
        return self.meets(self.goal["band"])


def name_of(goal):
    longest = ", longest" if goal.get("longest") else ""
    return f"{goal['figure']}{longest}, {goal['jobs']:,}"


def text_of_goal(goal):
    if "limit" in goal:
        return f"≤ {goal['limit']} s"
    sign, bound = ("≥", goal["at_least"]) if "at_least" in goal else ("≤", goal["at_most"])
    return f"{sign} {bound}" + (f" + {goal['plus']} s" if "plus" in goal else "")


def rows_of(run):
    """The rows for which there are figures, by name; all must be there but those of a full run."""
    figures = {(f["name"], f["jobs"]): f for f in run["figures"]}
    rows = {}
    for group in GROUPS:
        for goal in group["rows"]:
            figure = figures.get((goal["figure"], goal["jobs"]))
            if figure:
                rows[name_of(goal)] = Row(goal, figure)
            elif run["effort"] == "full" or not goal.get("full"):
                raise SystemExit(f"not measured: {name_of(goal)}")
    return rows


def quantity(value, unit=""):
    """With three digits that count, and no more."""
    for smaller, larger in (("ns", "us"), ("us", "ms"), ("KiB", "MiB")):
        if unit == smaller and value >= 10000:
            value, unit = value / (1024 if smaller == "KiB" else 1000), larger
    digits = 0 if value >= 100 else 1 if value >= 10 else 2
    return f"{value:,.{digits}f} {unit.replace('us', 'µs')}".rstrip()


def judge(results):
    outside = []
    for name, row in rows_of(json.loads(results.read_text())).items():
        verdict = "met" if row.meets_goal() else "missed"
        if not row.is_inside_band():
            verdict = f"OUTSIDE ITS BAND ({row.goal['band']})"
            outside.append(name)
        print(f"{name:32} {quantity(row.measured, row.unit):>14}  floor {quantity(row.floor, row.unit):>14}"
              f"  ratio {row.ratio:6.3f}  {text_of_goal(row.goal):>16}: {verdict}")
    if outside:
        raise SystemExit("far from where it has been: " + "; ".join(outside))


# Showing

def cell(row):
    """Two digits behind the point, or three where two would make the ratio look like the goal."""
    if not row:
        return "–"
    digits = 3 if round(row.ratio, 2) == row.bound != row.ratio else 2
    ratio = f"{row.ratio:.{digits}f}"
    verdict = f"**{ratio}**" if row.meets_goal() else f"{ratio}, missed"
    return f"{quantity(row.measured, row.unit)}, floor {quantity(row.floor, row.unit)}: {verdict}"


def table(group, found):
    """What each run has measured, by what floor, and the ratio."""
    lines = ["| | goal | band | " + " | ".join(f"run {i}" for i in range(1, len(found) + 1)) + " |",
             "|---|---|---|" + "---|" * len(found)]
    for goal in group["rows"]:
        cells = [cell(rows.get(name_of(goal))) for rows in found]
        cells = [name_of(goal), text_of_goal(goal), str(goal["band"])] + cells
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


def list_of_runs(runs):
    lines = []
    for i, run in enumerate(runs, 1):
        m = run["machine"]
        lines.append(f"- Run {i}: {run['date']}, {run['effort']}; {m['processors']} processors "
                     f"({m['processor']}), {m['memory']}, {m['kernel']}")
    return "\n".join(lines)


def document(page, results):
    text = page.read_text()
    runs = [json.loads(result.read_text()) for result in results]
    found = [rows_of(run) for run in runs]
    parts = {group["name"]: table(group, found) for group in GROUPS}
    parts["runs"] = list_of_runs(runs)
    for name, part in parts.items():
        begin, end = f"<!-- figures: {name} -->\n", "<!-- end of figures -->"
        if text.count(begin) != 1:
            raise SystemExit(f"{page}: no place for the figures: {name}")
        before, after = text.split(begin)
        if end not in after:
            raise SystemExit(f"{page}: the figures have no end: {name}")
        text = before + begin + part + "\n" + after[after.index(end):]
    page.write_text(text)


def series(runs, name):
    """Of each run, the points (jobs, measured, floor, ratio) of a figure, as medians."""
    for run in runs:
        yield [(f["jobs"],
                statistics.median(r["measured"] for r in f["rounds"]),
                statistics.median(r["floor"] for r in f["rounds"]),
                statistics.median(r["measured"] / r["floor"] for r in f["rounds"]))
               for f in run["figures"] if f["name"] == name]


def gnuplot(path, commands):
    script = f"""set terminal svg size 720,480 font 'sans-serif,13' background rgb 'white'
set output '{path}'
set grid
set key below
{commands}
"""
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def block(name, points):
    lines = "\n".join(" ".join(str(value) for value in point) for point in points)
    return f"${name} << EOD\n{lines}\nEOD\n"


def plot_ratios(directory, runs):
    data, curves = "", ["1 title 'the floor of each' lc rgb 'black'"]
    for colour, figure in enumerate(("command check", "file check", "file check, paced"), 1):
        for i, points in enumerate(series(runs, figure), 1):
            name = f"{re.sub('[^a-z]', '_', figure)}_{i}"
            data += block(name, points)
            curves.append(f"${name} using 1:4 with linespoints lc {colour} dt {i} title '{figure}, run {i}'")
    gnuplot(directory / "checks.svg", f"""{data}
set title 'Processor time of a check, each against its own floor'
set xlabel 'jobs'
set ylabel 'ratio'
set logscale x
set xrange [8:6500]
set yrange [0:*]
plot {', '.join(curves)}""")


def plot_load(directory, runs):
    data, curves = "", []
    for i, points in enumerate(series(runs, "load"), 1):
        data += block(f"load_{i}", points)
        curves.append(f"$load_{i} using 1:($2/1e6) with linespoints title 'load, run {i}'")
        curves.append(f"$load_{i} using 1:($3/1e6) with linespoints title 'parser alone, run {i}'")
    gnuplot(directory / "load.svg", f"""{data}
set title 'A whole load'
set xlabel 'jobs'
set ylabel 'milliseconds'
set logscale xy
plot {', '.join(curves)}""")


def plot_samples(directory, runs, name, figure, title, xlabel):
    """How many of all measurements took no longer than that."""
    data, curves = "", []
    for i, run in enumerate(runs, 1):
        for f in run["figures"]:
            if f["name"] == figure:
                times = sorted(r["measured"] for r in f["rounds"])
                key = f"times_{i}_{f['jobs']}"
                data += block(key, [(t, (n + 1) / len(times)) for n, t in enumerate(times)])
                curves.append(f"${key} using 1:2 with steps title '{f['jobs']:,} {'job' if f['jobs'] == 1 else 'jobs'}, run {i}'")
    gnuplot(directory / name, f"""{data}
set title '{title}'
set xlabel '{xlabel}'
set ylabel 'share of all that took no longer'
set xrange [0:*]
set yrange [0:1]
plot {', '.join(curves)}""")


def plot(directory, results):
    runs = [json.loads(result.read_text()) for result in results]
    plot_ratios(directory, runs)
    plot_load(directory, runs)
    plot_samples(directory, runs, "detection.svg", "detection",
                 "From a fault to the start of its remedy, a check every second", "seconds")
    plot_samples(directory, runs, "reload.svg", "reload",
                 "From a change of the configuration to the last first check", "seconds")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    verbs = parser.add_subparsers(dest="verb", required=True)
    for verb, first, more in (("collect", "directory", 1), ("judge", None, 1), ("document", "page", "+"),
                              ("plot", "directory", "+")):
        one = verbs.add_parser(verb)
        if first:
            one.add_argument("first", metavar=first, type=pathlib.Path)
        one.add_argument("results", type=pathlib.Path, nargs=more)
    arguments = parser.parse_args()
    if arguments.verb == "collect":
        collect(arguments.first, arguments.results[0])
    elif arguments.verb == "judge":
        judge(arguments.results[0])
    elif arguments.verb == "document":
        document(arguments.first, arguments.results)
    else:
        plot(arguments.first, arguments.results)


if __name__ == "__main__":
    main()
