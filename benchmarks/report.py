#!/usr/bin/env python3
"""Renders benchmarks/results as docs/performance.md with charts in docs/performance/.

usage: benchmarks/report.py [--store DIRECTORY PACKAGE... | --add DIRECTORY...]

With --store it first takes over a whole run of scripts/bench from the directory: of each figure the
median of the rounds, the footprint, and the versions of the packages. With --add it replaces the
figures of the programs whose results lie in the directories, one directory for each round.
"""
import datetime
import json
import math
import os
import platform
import re
import statistics
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
RESULTS = ROOT / "benchmarks" / "results"
PAGE = ROOT / "docs" / "performance.md"
CHARTS = ROOT / "docs" / "performance"

NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


# ------------------------------------------------------------------------------------------ results


def load(name):
    return json.loads((RESULTS / f"{name}.json").read_text())


def store(name, content):
    (RESULTS / f"{name}.json").write_text(json.dumps(content, indent=1) + "\n")


def medians(rounds):
    """By program and case: the medians of the figures of several runs."""
    found = {}
    for path in sorted(path for directory in rounds for path in directory.glob("*.json")):
        cases = found.setdefault(path.stem.partition("@")[0], {})
        for entry in json.loads(path.read_text())["benchmarks"]:
            cases.setdefault(entry["name"], []).append(entry)
    skipped = ("index", "repetitions", "threads", "iterations")  # of no use to the report

    def median(name, values):
        return float(f"{statistics.median(values):.6g}") if name != "time_unit" else values[0]

    return {
        program: {
            case: {
                name: median(name, [entry[name] for entry in entries])
                for name, value in entries[0].items()
                if (name == "time_unit" or not isinstance(value, str)) and not name.endswith(skipped)
            }
            for case, entries in cases.items()
        }
        for program, cases in found.items()
    }


def first_line(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.split("\n")[0]


def store_run(directory, packages):
    store("medians", medians(sorted(directory.glob("round-*"))))
    lines = (directory / "footprint").read_text().split("\n")
    store("footprint", {line.split()[0]: float(line.split()[1]) for line in lines if line})
    processor = re.search(r"^model name\t: (.*)", Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    store("machine", {
        "date": str(datetime.date.today()),
        "processor": processor[1] if processor else platform.machine(),
        "cores": os.cpu_count(),
        "kernel": f"{platform.system()} {platform.release()}",
        "compiler": first_line("c++", "--version"),
        "c_library": first_line("ldd", "--version"),
        "peers": {name: first_line("dpkg-query", "-W", "-f", "${Version}", name)
                  for name in packages if name != "python3"},
    })


class Program:
    """The results of one benchmark program: medians over the rounds."""

    def __init__(self, name):
        self.entries = load("medians").get(name, {})

    def has(self, case):
        return case in self.entries

    def time(self, case):
        """Nanoseconds of an iteration by the wall clock."""
        unit = NANOSECONDS[self.entries[case]["time_unit"]]
        return self.counter(case, "real_time") * unit

    def counter(self, case, name):
        return self.entries[case][name]

    def item(self, case):
        """Nanoseconds of an item."""
        return 1e9 / self.counter(case, "items_per_second")


class Contest:
    """One table and one chart: the same work, done by several."""

    def __init__(self, title, file, unit, note=""):
        self.title, self.file, self.unit, self.note = title, file, unit, note
        self.rows = []  # (case, {contestant: value})

    def add(self, case, **values):
        self.rows.append((case, {name.replace("_", " "): value for name, value in values.items()}))

    def contestants(self):
        names = []
        for _, values in self.rows:
            names += [name for name in values if name not in names]
        return names

    def faster(self, values, name):
        """How many times as fast the first contestant is, compared with another."""
        own = next(iter(values.values()))
        return values[name] / own if self.unit != "MB/s" else own / values[name]


def show(value, unit):
    if unit == "MB/s":
        return f"{value:,.0f} MB/s"
    for limit, factor, name in ((1e3, 1, "ns"), (1e6, 1e3, "µs"), (1e9, 1e6, "ms")):
        if value < limit:
            return f"{value / factor:.3g} {name}"
    return f"{value / 1e9:.3g} s"


def counted(number, noun):
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


def geometric_mean(values):
    values = list(values)
    return math.exp(sum(map(math.log, values)) / len(values))


# ------------------------------------------------------------------------------------------- charts


def chart(contest):
    """Bars of the speed in relation to the first contestant, whose bar has the length 1."""
    colours = ["#1f6feb", "#8fa3b5", "#b7c4cf", "#6f8396", "#cfd8df", "#a58f6f", "#c9b99a", "#7d9a7d"]
    names = contest.contestants()
    longest = 4.0
    left, bar, step, unit_width = 250, 13, 16, 120
    lines, y = [], 56
    for case, values in contest.rows:
        lines.append(f'<text x="{left - 8}" y="{y + 10}" text-anchor="end">{case}</text>')
        for name, value in values.items():
            speed = 1 / contest.faster(values, name)
            width = max(min(speed, longest) * unit_width, 1)
            label = show(value, contest.unit) + ("" if speed <= longest else f" ({speed:.1f} ×)")
            lines.append(
                f'<rect x="{left}" y="{y}" width="{width:.0f}" height="{bar}" '
                f'fill="{colours[names.index(name)]}"/>'
                f'<text x="{left + width + 5:.0f}" y="{y + 10}" class="small">{label}</text>'
            )
            y += step
        y += 10
    legend = []
    x = left
    for index, name in enumerate(names):
        legend.append(
            f'<rect x="{x}" y="30" width="10" height="10" fill="{colours[index]}"/>'
            f'<text x="{x + 14}" y="39" class="small">{name}</text>'
        )
        x += 30 + 7 * len(name)
    width = max(left + longest * unit_width + 130, x)
    one = left + unit_width
    return "\n".join(
        [
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{y + 6}" '
            'font-family="sans-serif" font-size="12" fill="#222">',
            "<style>.small { font-size: 10.5px; }</style>",
            '<rect width="100%" height="100%" fill="#ffffff"/>',
            f'<text x="12" y="18" font-weight="bold">{contest.title}: speed, Tolvex = 1, '
            "longer is faster</text>",
            *legend,
            f'<line x1="{one}" y1="48" x2="{one}" y2="{y - 4}" stroke="#1f6feb" '
            'stroke-dasharray="3 3"/>',
            *lines,
            "</svg>",
            "",
        ]
    )


# ------------------------------------------------------------------------------------------- tables


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows]) + "\n"


def contest_section(contest):
    names = contest.contestants()
    rows = []
    for case, values in contest.rows:
        cells = [case]
        for name in names:
            if name not in values:
                cells.append("")
                continue
            cell = show(values[name], contest.unit)
            if name != names[0]:
                cell += f" ({contest.faster(values, name):.2f})"
            cells.append(cell)
        rows.append(cells)
    (CHARTS / f"{contest.file}.svg").write_text(chart(contest))
    text = f"### {contest.title}\n\n{contest.note}\n" if contest.note else f"### {contest.title}\n"
    return (
        text
        + f"\n![{contest.title}](performance/{contest.file}.svg)\n\n"
        + table(["", *names], rows)
    )


class Goals:
    """The goals of the library, and whether it reaches them."""

    def __init__(self):
        self.rows = []

    def at_most(self, what, limit, value, unit="×", because=""):
        self._add(what, f"≤ {limit:g} {unit}", value, unit, value <= limit, because)

    def at_least(self, what, limit, value, unit="×", because=""):
        self._add(what, f"≥ {limit:g} {unit}", value, unit, value >= limit, because)

    def _add(self, what, limit, value, unit, met, because):
        verdict = "yes" if met else "**no**" + (f": {because}" if because else "")
        self.rows.append([what, limit, f"{value:.3g} {unit}", verdict])


# ---------------------------------------------------------------------------------------- subjects

JSON_PEERS = {
    "Tolvex": "Tolvex",
    "RapidJSON": "RapidJson",
    "Boost.JSON": "Boost",
    "simdjson": "Simdjson",
    "nlohmann": "Nlohmann",
    "cJSON": "CJson",
    "Jansson": "Jansson",
    "JsonCpp": "JsonCpp",
}
CORPORA = ["canada", "citm", "telemetry4MB"] + [f"objects{size}MB" for size in (1, 4, 16, 64)]


def json_contest(direction, title, file, note, goals):
    programs = {peer: Program(f"Json.Json{name}Benchmark") for peer, name in JSON_PEERS.items()}
    contest = Contest(title, file, "MB/s", note)
    ratios = {peer: [] for peer in JSON_PEERS}
    for corpus in CORPORA:
        case = f"{direction}/{corpus}"
        speeds = {
            peer: program.counter(case, "bytes_per_second") / 1e6
            for peer, program in programs.items()
            if program.has(case)
        }
        contest.add(corpus, **speeds)
        for peer, speed in speeds.items():
            ratios[peer].append(speeds["Tolvex"] / speed)
    mean = {peer: geometric_mean(values) for peer, values in ratios.items() if values}
    if direction == "read":
        goals.at_least("JSON: reading, mean over the documents, of nlohmann", 2.2, mean["nlohmann"])
        goals.at_least("JSON: reading, slowest document, of nlohmann", 1.6, min(ratios["nlohmann"]))
        goals.at_least("JSON: reading, slowest document, of JsonCpp", 2, min(ratios["JsonCpp"]))
        goals.at_least("JSON: reading, slowest document, of Jansson", 2, min(ratios["Jansson"]))
        goals.at_least("JSON: reading, mean, of cJSON", 1, mean["cJSON"])
    else:
        goals.at_least("JSON: writing, mean, of RapidJSON's Writer", 1, mean["RapidJSON"])
        goals.at_least("JSON: writing, mean, of nlohmann", 2, mean["nlohmann"])
        for peer, values in ratios.items():
            if values and peer != "Tolvex":
                goals.at_least(f"JSON: writing, slowest document, of {peer}", 1, min(values))
    means = ", ".join(f"{peer} {value:.2f}" for peer, value in mean.items() if peer != "Tolvex")
    contest.note += f" Geometric means of the ratios: {means}."
    return contest


def json_growth(goals):
    program = Program("Json.JsonTolvexBenchmark")
    least = "{}/{}/repeats:3_least"
    growth, late, milliseconds = {}, {}, {}
    for case in ("ReadGrowing/numbers", "ReadGrowing/words", "ReadGrowing/objects",
                 "ReadGrowing/string", "ReadGrowing/depth", "FillValues", "FillWords", "CopyText"):
        milliseconds[case] = [program.time(least.format(case, size)) / 1e6 for size in (1, 8, 64)]
        growth[case] = milliseconds[case][2] / milliseconds[case][0]
        late[case] = milliseconds[case][2] / milliseconds[case][1]
    floors = {"ReadGrowing/numbers": "FillValues", "ReadGrowing/words": "FillWords",
              "ReadGrowing/string": "CopyText"}

    def shares(case, floor):
        return [of_floor / of_case for of_floor, of_case
                in zip(milliseconds[floor], milliseconds["ReadGrowing/" + case])]

    rows = []
    for case in growth:
        what = case.removeprefix("ReadGrowing/")
        rows.append([what, *(f"{value:.3g} ms" for value in milliseconds[case]),
                     f"{growth[case]:.3g} ×", f"{late[case]:.3g} ×"])
        if case.startswith("ReadGrowing/"):
            floor = floors.get(case)
            because = (f"1 MB stays in the caches; from 8 MB on it grows {late[case]:.3g} ×, and making "
                       f"the same values or bytes alone {growth[floor]:.3g} ×" if floor else
                       f"linear from 8 MB on: 64 MB take {late[case]:.3g} × the time of 8 MB")
            goals.at_most(f"JSON: time of 64 MB by time of 1 MB, {what}", 80, growth[case],
                          because=because)
    return ("### Growth with the length\n\nThe last rows show the limits of the machine: the time to "
            "create and destroy as many values as there are numbers or short strings, and to copy the "
            "text once. Of the speed of creating them alone, reading 1, 8 and 64 MB reaches "
            + ", and ".join(
                f"{fill[0]:.2f}, {fill[1]:.2f} and {fill[2]:.2f} for {what}"
                for what, fill in (("numbers", shares("numbers", "FillValues")),
                                   ("short strings", shares("words", "FillWords"))))
            + ".\n\n"
            + table(["", "1 MB", "8 MB", "64 MB", "from 1 to 64 MB", "from 8 to 64 MB"], rows))


def json_additions(goals):
    program = Program("Json.JsonTolvexBenchmark")
    rows, slowdowns = [], []
    for corpus in CORPORA:
        cases = [f"{what}/{corpus}" for what in ("read", "readWithError", "write", "writeStandard")]
        if all(program.has(case) for case in cases):
            slowdowns.append(program.time(cases[1]) / program.time(cases[0]))
            rows.append([corpus, *(show(program.counter(case, "bytes_per_second") / 1e6, "MB/s")
                                   for case in cases)])
    if slowdowns:
        goals.at_most("JSON: reading with ParseError, mean of the documents, by reading without",
                      1.02, geometric_mean(slowdowns))
    return ("### Reading with an error, writing standard JSON\n\nSpeeds count the bytes of the document "
            "that was read.\n\n"
            + table(["", "`Deserialize`", "with `ParseError`", "`Serialize`", "`SerializeStandard`"],
                    rows)) if rows else ""


def json_memory(goals):
    program = Program("Json.JsonTolvexBenchmark")
    rows, ratios = [], []
    for corpus in CORPORA:
        case = f"memory/{corpus}/iterations:1"
        peak, tree = program.counter(case, "peak"), program.counter(case, "tree")
        ratios.append(peak / tree)
        rows.append([corpus, f"{tree / 1e6:.1f} MB", f"{peak / 1e6:.1f} MB", f"{peak / tree:.2f}"])
    goals.at_most("JSON: peak while reading, by values, key nodes and strings", 1.15, max(ratios))
    return ("### Memory of a tree\n\nThe peak is the growth of the process while it reads a document. The "
            "tree is the minimum that it has to keep: its values, the nodes of its keys, long strings.\n\n"
            + table(["", "tree", "peak", "ratio"], rows))


def log_lines(goals):
    program = Program("Log.LoggerBenchmark")
    names = {"Tolvex": "BM_Logger", "LogLine": "BM_LogLine", "baseline": "BM_Floor",
             "system calls": "BM_SystemCalls", "spdlog, reopening": "BM_SpdlogReopening",
             "spdlog, flushed": "BM_SpdlogFlushed", "glog, flushed": "BM_GlogFlushed"}
    contest = Contest(
        "Log lines", "log", "ns",
        "Time of a line from the call to the closed file. The system calls are those that a line "
        "needs (open, append, close), on the caller's thread; the baseline makes them on a second "
        "thread, to which std::binary_semaphore hands the line. spdlog and glog write on the "
        "caller's thread; flushed means one file that stays open. The last rows are the time that "
        "the caller spends in the calls.")
    for producers in (1, 4):
        times = {name: 1e9 * program.counter(f"{case}/{producers}/manual_time", "per_line")
                 for name, case in names.items()}
        contest.add(counted(producers, "producer"), **times)
        ratio = times["Tolvex"] / times["baseline"]
        goals.at_most(f"Log: a line, {counted(producers, 'producer')}, by the baseline",
                      1.3 if producers == 1 else 1.5, ratio)
        glog = times["glog, flushed"]
        goals.at_most(f"Log: a line, {counted(producers, 'producer')}, by glog flushed per line",
                      1 if producers == 1 else 1.05, times["Tolvex"] / glog,
                      because=f"glog keeps its file open and writes on the caller's thread. Opening, "
                              f"appending and closing alone take "
                              f"{times['system calls'] / glog:.2f} ×")
    for percent in ("p50", "p99", "p99.9"):
        latency = {name: 1e9 * program.counter(f"{case}/1/manual_time", percent)
                   for name, case in names.items()}
        contest.add(f"caller, {percent}", **latency)
    for producers in (1, 4):
        tails = [program.counter(f"{case}/{producers}/manual_time", "p99.9")
                 for case in ("BM_Logger", "BM_Floor")]
        goals.at_most(f"Log: the caller's p99.9, {counted(producers, 'producer')}, by the baseline's",
                      3, tails[0] / tails[1])
    goals.at_most("Log: a line of five calls while disabled, by five calls that test a flag", 1.5,
                  program.time("BM_LineWhileDisabled") / program.time("BM_FiveCallsThatTestAFlag"))
    return contest


def log_settings():
    program = Program("Log.LoggerBenchmark")
    names = {"none": "BM_LogLine",
             "`LogDurability::IgnitionOff`, until the ignition goes off": "BM_LineIgnitionOff",
             "`LogDurability::Interval`, 500 ms": "BM_LineInterval",
             "`LogDurability::EachLine`": "BM_LineEach",
             "a size limit, file never full": "BM_LineBelowLimit",
             "a size limit, a new file every 100 lines": "BM_LineRenaming"}
    cost = {what: 1e9 * program.counter(f"{case}/1/manual_time", "per_line")
            for what, case in names.items() if program.has(f"{case}/1/manual_time")}
    rows = [[what, show(time, "ns"), f"{time / cost['none']:.2f} ×"] for what, time in cost.items()]
    return ("### Log files on the medium, and of limited size\n\nTime of a line of one thread that "
            "logs without a pause, from the call to the end of the write. A sync takes as long as "
            "the disk needs.\n\n" + table(["Setting", "a line", "by none"], rows))


def log_hand_over(goals):
    program = Program("Log.HandOverBenchmark")
    names = {"Tolvex": "Tolvex", "condition variable": "condition_variable", "bare futex": "futex",
             "std::binary_semaphore": "binary_semaphore", "ISemaphore": "ISemaphore",
             "condition variable, composing": "composed"}
    loads = {"1 producer": "1_producer", "4 producers": "4_producers",
             "1 producer, beside two busy loops": "1_producer_busy",
             "4 producers, beside two busy loops": "4_producers_busy",
             "1 producer, one core": "1_producer_one_core",
             "4 producers, one core": "4_producers_one_core",
             "4 producers, 100 lines a second each": "4_producers_sparse"}
    limits = {"1_producer_one_core": 1, "4_producers_one_core": 1, "4_producers_sparse": 1.15}
    rows = []
    for what, kind in loads.items():
        cost, wall = ({name: 1e9 * program.counter(f"{case}/{kind}/iterations:1", counter)
                       for name, case in names.items()}
                      for counter in ("cpu_per_line", "wall_per_line"))
        rows.append([what, *(f"{show(cost[name], 'ns')} ({show(wall[name], 'ns')})"
                             for name in names)])
        if kind in limits:
            goals.at_most(f"Log: processor time of a line, {what}, by the condition variable's",
                          limits[kind], cost["Tolvex"] / cost["condition variable"],
                          because=f"the condition variable hands over a ready-made line. If it composes "
                                  f"the line first, it takes "
                                  f"{cost['condition variable, composing'] / cost['Tolvex']:.2f} × "
                                  f"the time of Tolvex. A hand-over through ISemaphore alone takes "
                                  f"{cost['ISemaphore'] / cost['Tolvex']:.2f} ×")
    return ("### Handing a line over\n\nProcessor time of a line, of all threads together, and in "
            "parentheses wall time. Tolvex and the last column compose the line, the latter by "
            "strftime() and snprintf(); the others take a ready-made one. All pass it to a second "
            "thread, which opens, appends and closes. A line waits until the line before has been written. One core: "
            "the process may use no other.\n\n"
            + table(["", *names], rows))


def threads(goals):
    asynchronous = Program("Util.IAsyncBenchmark")
    semaphore = Program("Interfaces.ISemaphoreBenchmark")
    thread = Program("Interfaces.IThreadBenchmark")
    dates = Program("Util.UtilTimeBenchmark")
    contest = Contest("Threads, semaphore, dates", "threads", "ns",
                      "There and back: two threads pass a token to each other. ISemaphore spins before it "
                      "sleeps; the others spend most of their time in the scheduler.")
    contest.add("delayed callback, first instruction",
                Tolvex=asynchronous.time("IAsyncDelayZero/manual_time"),
                **{"std::thread": asynchronous.time("StdThreadDetach/manual_time"),
                   "std::async": asynchronous.time("StdAsync/manual_time")})
    for case, suffix, what in (("NotifyAndTryWait", "", "semaphore: notify and try"),
                               ("PingPong", "/real_time", "semaphore: there and back")):
        contest.add(what, Tolvex=semaphore.time(f"{case}<TolvexSemaphore>{suffix}"),
                    **{"std::counting_semaphore":
                           semaphore.time(f"{case}<StandardSemaphore>{suffix}"),
                       "sem_t": semaphore.time(f"{case}<PosixSemaphore>{suffix}")})
    contest.add("date as in a log line", Tolvex=dates.time("NewDate"),
                **{"localtime_r and strftime": dates.time("BareString")})
    empty, bare = thread.item("EmptyPass/manual_time"), thread.item("BareLoop/manual_time")
    goals.at_most("Thread: an empty pass of the loop, more than a bare loop", 3, empty - bare, "ns")
    ignition = Program("Interfaces.IgnitionOffSequenceBenchmark")
    more = ignition.time("EveryParticipantHangs/iterations:5/manual_time")
    goals.at_most("Ignition-off: 20 participants that hang, more than the sum of their budgets", 50,
                  more / 1e6, "ms")
    rows = [["start to first instruction", show(thread.time("StartToFirstInstruction/manual_time"),
                                                "ns")],
            ["stop (polls every 100 ms)", show(thread.time(
                "StopLatency/iterations:20/manual_time"), "ns")],
            ["empty pass of the loop", show(empty, "ns")],
            ["bare loop over a virtual call", show(bare, "ns")],
            ["ignition-off with 20 participants that hang, more than the sum of their budgets",
             show(more, "ns")]]
    rows += [[f"notification with {counted(count, 'observer')}",
              show(thread.time(f"DoCallback/{count}"), "ns")] for count in (0, 1, 8)]
    return contest, "### Worker thread\n\n" + table(["", "time"], rows)


def timers():
    program = Program("Util.TimerBenchmark")
    rows = []
    for period in (1, 10):
        for name, case in (("Tolvex", "Timer"), ("timerfd", "TimerfdThread"),
                           ("Boost.Asio", "AsioSteadyTimer")):
            full = f"{case}/ms:{period}/iterations:1"
            rows.append([f"{period} ms", name]
                        + [f"{program.counter(full, field):,.0f} µs"
                           for field in ("late_p50_us", "late_p99_us", "late_max_us")]
                        + [f"{program.counter(full, 'lost'):.0f}"])
    return ("### Timer\n\nLateness of the calls of a periodic timer over five seconds, and the number "
            "of expiries without a call.\n\n"
            + table(["period", "", "p50", "p99", "latest", "lost"], rows))


def ring(goals):
    program = Program("Util.CircularBufferBenchmark")
    contest = Contest("Ring of frames", "ring", "ns",
                      "An array slot is a bare assignment of a shared pointer.")
    contest.add("add, callback called", Tolvex=program.time("AddToPipelineElement"),
                **{"array slot": program.time("AddToArraySlot"),
                   "boost::circular_buffer": program.time("AddToBoostRing")})
    contest.add("add, no callback", Tolvex=program.time("AddToRingWithoutCallback"),
                **{"array slot": program.time("AddToArraySlot"),
                   "boost::circular_buffer": program.time("AddToBoostRing")})
    contest.add("retrieve the current", Tolvex=program.time("RetrieveCurrentOfRing"),
                **{"boost::circular_buffer": program.time("RetrieveCurrentOfBoostRing")})
    contest.add("read a slot", Tolvex=program.time("ReadSlotOfRing"),
                **{"boost::circular_buffer": program.time("ReadSlotOfBoostRing")})
    slot = program.time("AddToArraySlot")
    goals.at_most("Ring: adding to a full ring, callback called, by an array slot", 1.35,
                  program.time("AddToPipelineElement") / slot)
    goals.at_most("Ring: adding without callback, by an array slot", 1.15,
                  program.time("AddToRingWithoutCallback") / slot)
    goals.at_most("Ring: reading a slot, by boost::circular_buffer", 1.02,
                  program.time("ReadSlotOfRing") / program.time("ReadSlotOfBoostRing"))
    return contest


def replacing(goals):
    program = Program("Util.UtilStringBenchmark")
    contest = Contest("Replacing in text", "replace", "ns",
                      "Against `boost::algorithm::replace_all_copy`.")
    ratios = []
    for case in sorted({name.split("/", 1)[1] for name in program.entries}):
        times = [program.time(f"ReplaceOf{who}/{case}") for who in ("Tolvex", "Boost")]
        contest.add(case, Tolvex=times[0], Boost=times[1])
        ratios.append(times[0] / times[1])
    goals.at_most("Text: replacing, slowest case, by Boost", 1, max(ratios))
    return contest


def crypto(goals):
    program = Program("Crypto.CryptoBenchmark")
    contest = Contest("Base64 and HMAC-SHA1", "crypto", "ns",
                      "Against the same calls of libcrypto by hand; bytes behind the slash.")
    pairs = {"EncodeInLines": "EncodeInLinesByHand",
             "EncodeWithoutNewLines": "EncodeWithoutNewLinesByHand",
             "EncodeLine": "EncodeLineByOneShot", "DecodeLine": "DecodeLineByOneShot",
             "Sign": "SignByHand"}
    ratios = []
    for ours, theirs in pairs.items():
        for size in (20, 1000, 1000000):
            times = [program.time(f"{case}/{size}") for case in (ours, theirs)]
            contest.add(f"{ours}/{size}", Tolvex=times[0], libcrypto=times[1])
            if size >= 1000:
                ratios.append(times[0] / times[1])
    goals.at_most("Crypto: from 1 KB on, slowest call, by libcrypto by hand", 1.1, max(ratios))
    return contest


def footprint(goals):
    figures = load("footprint")
    machines = sorted({key.split(".")[0] for key in figures})
    kinds = list(dict.fromkeys(key.split(".")[1] for key in figures))
    rows = [
        [kind.replace("_", " ")]
        + [f"{figures[key]:,.9g}" if key in figures else ""
           for key in (f"{machine}.{kind}" for machine in machines)]
        for kind in kinds
    ]
    goals.at_most("Footprint: library for ARM (armhf), stripped", 300,
                  figures["armhf.stripped_bytes"] / 1024, "KiB")
    goals.at_most("Log: allocations of the caller per line", 0,
                  figures["x86_64.log_allocations_per_line"], "")
    return ("## Footprint\n\nAn idle process has both logs, the tick thread and nothing else. Besides "
            "the C and C++ runtime the library needs libcrypto and libuuid.\n\n"
            + table(["", *machines], rows))


def instructions(goals):
    """Counts of benchmarks/Instructions/count.py."""
    counts = {name: each["main"] + each["others"] for name, each in load("instructions").items()}
    if not counts:
        return ""
    peers = {"Tolvex": "Tolvex", "nlohmann": "Nlohmann", "RapidJSON": "RapidJson", "cJSON": "CJson"}
    documents = [name.split("/")[1] for name in counts if name.startswith("Tolvex read/")]
    tables = []
    for direction in ("read", "write"):
        rows = []
        for document in documents:
            cells = {peer: counts.get(f"{name} {direction}/{document}") for peer, name in peers.items()}
            rows.append([document, *(f"{cell / 1000:,.0f}" if cell else "" for cell in cells.values()),
                         f"{cells['Tolvex'] / cells['nlohmann']:.2f}" if cells["nlohmann"] else ""])
        tables.append(table([direction, *peers, "Tolvex by nlohmann"], rows))
        if rows[0][-1]:
            goals.at_most(f"ARM: instructions to {direction} a document, worst, by nlohmann", 0.5,
                          max(float(row[-1]) for row in rows))
    small = {name.removeprefix("Operations "): each for name, each in load("instructions").items()
             if name.startswith("Operations ")}
    goals.at_most("ARM: instructions to compose and write a log line", 4.5,
                  sum(small["log-line"].values()) / 1000, "thousand")
    rows = [[name, f"{each['main'] + each['others']:,}", f"{each['main']:,}", f"{each['others']:,}"]
            for name, each in small.items()]
    return ("## Instructions on ARM\n\n`benchmarks/Instructions/count.py` counts user instructions on "
            "32-bit ARM. The counts do not depend on the machine; those of operations with two threads "
            "vary by about 1 %. Documents, in thousands of instructions:\n\n" + "\n".join(tables)
            + "\nOne operation each. For a log line, the main thread composes it and the other thread "
            "writes it; `log-black-box` keeps it in memory instead, `log-floor` is `snprintf`, open, "
            "append and close on one thread. `time-stamp` is a call of `Util::NewDate()`; the header "
            "of a log line formats the date at most once a second.\n\n"
            + table(["operation", "instructions", "main thread", "other thread"], rows))


# --------------------------------------------------------------------------------------------- page


def machine():
    facts = load("machine")
    peers = ", ".join(f"{name} {version}" for name, version in sorted(facts["peers"].items()))
    return table(["", ""], [
        ["Last measured", facts["date"]], ["Processor", f"{facts['processor']}, {facts['cores']} cores"],
        ["Kernel", facts["kernel"]], ["Compiler", facts["compiler"]],
        ["C library", facts["c_library"]], ["Peers", peers]])


def main():
    if sys.argv[1:2] == ["--store"]:
        store_run(Path(sys.argv[2]), sys.argv[3:])
    if sys.argv[1:2] == ["--add"]:
        store("medians", load("medians") | medians([Path(name) for name in sys.argv[2:]]))
        store("machine", load("machine") | {"date": str(datetime.date.today())})
    CHARTS.mkdir(parents=True, exist_ok=True)
    goals = Goals()
    log, hand_over = log_lines(goals), log_hand_over(goals)
    thread_contest, thread_table = threads(goals)
    reading = json_contest(
        "read", "JSON: text to tree to destroyed", "json-read",
        "simdjson's tree is read-only and does not copy strings.", goals)
    writing = json_contest("write", "JSON: tree to text", "json-write",
                           "Speeds count the bytes of the document that was read.", goals)
    growth, memory, additions = json_growth(goals), json_memory(goals), json_additions(goals)
    ring_contest, replace_contest, crypto_contest = ring(goals), replacing(goals), crypto(goals)
    sun = Program("Util.SunCalculatorBenchmark").time("ComputesTimesOfDays")
    arm = instructions(goals)
    foot = footprint(goals)

    sections = [
        "# Performance\n\n<!-- Made by benchmarks/report.py from benchmarks/results: do not edit. "
        "-->\n\n`scripts/bench` runs every benchmark three times and writes the medians to this page. "
        "The times depend on this machine; compare the ratios. A ratio in parentheses says how many "
        "times as fast Tolvex is on the same work; below 1 it is slower.\n",
        machine(),
        "## Goals\n",
        table(["What", "Goal", "Measured", "Met"], goals.rows),
        "## Against others\n",
        contest_section(reading), contest_section(writing), growth, memory, additions,
        contest_section(log), hand_over, log_settings(), contest_section(thread_contest), thread_table,
        timers(),
        contest_section(ring_contest), contest_section(replace_contest),
        contest_section(crypto_contest),
        f"### Sun\n\nSunrise and sunset of a place and a day: {show(sun, 'ns')}.\n",
        arm, foot,
    ]
    PAGE.write_text("\n".join(sections))
    missed = [row[0] for row in goals.rows if not row[3].startswith("yes")]
    print(f"{PAGE.relative_to(ROOT)}: {len(goals.rows)} goals, {len(missed)} missed")
    for what in missed:
        print(f"  missed: {what}")


if __name__ == "__main__":
    main()
