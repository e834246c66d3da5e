#!/usr/bin/env python3
"""Renders benchmarks/results as docs/performance.md with charts in docs/performance/.

scripts/bench calls it after a whole run. Everything on the page is computed from those files: of
the rounds, each of which ran every program once, it takes the median.
"""
import json
import math
import statistics
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
RESULTS = ROOT / "benchmarks" / "results"
PAGE = ROOT / "docs" / "performance.md"
CHARTS = ROOT / "docs" / "performance"

NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


# ------------------------------------------------------------------------------------------ results


def load(name):
    path = RESULTS / f"{name}.json"
    return json.loads(path.read_text()) if path.exists() else {}


class Program:
    """The results of one benchmark program: medians over the rounds."""

    def __init__(self, name):
        self.entries = {}  # by name, one of each round
        for directory in sorted(RESULTS.glob("round-*")):
            for entry in load(f"{directory.name}/{name}").get("benchmarks", []):
                self.entries.setdefault(entry["name"], []).append(entry)

    def has(self, case):
        return case in self.entries

    def time(self, case):
        """Nanoseconds of an iteration by the wall clock."""
        unit = NANOSECONDS[self.entries[case][0]["time_unit"]]
        return self.counter(case, "real_time") * unit

    def counter(self, case, name):
        return statistics.median(entry[name] for entry in self.entries[case])

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
    """What the library is to reach, and whether it does."""

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
        goals.at_least(
            "JSON: writing, slowest document, of RapidJSON's Writer", 0.85, min(ratios["RapidJSON"])
        )
        goals.at_least("JSON: writing, mean, of nlohmann", 2, mean["nlohmann"])
    means = ", ".join(f"{peer} {value:.2f}" for peer, value in mean.items() if peer != "Tolvex")
    contest.note += f" Geometric means of the ratios: {means}."
    return contest


def json_growth(goals):
    program = Program("Json.JsonTolvexBenchmark")
    least = "{}/{}/repeats:3_least"
    growth, late, milliseconds = {}, {}, {}
    for case in ("ReadGrowing/numbers", "ReadGrowing/objects", "ReadGrowing/string",
                 "ReadGrowing/depth", "FillValues", "CopyText"):
        milliseconds[case] = [program.time(least.format(case, size)) / 1e6 for size in (1, 8, 64)]
        growth[case] = milliseconds[case][2] / milliseconds[case][0]
        late[case] = milliseconds[case][2] / milliseconds[case][1]
    floors = {"ReadGrowing/numbers": "FillValues", "ReadGrowing/string": "CopyText"}
    rows = []
    for case in growth:
        what = case.removeprefix("ReadGrowing/")
        rows.append([what, *(f"{value:.3g} ms" for value in milliseconds[case]),
                     f"{growth[case]:.3g} ×", f"{late[case]:.3g} ×"])
        if case.startswith("ReadGrowing/"):
            floor = floors.get(case)
            because = (f"1 MB stays in the caches; from 8 MB on it grows {late[case]:.3g} ×, and making "
                       f"the same values or bytes alone {growth[floor]:.3g} ×" if floor else "")
            goals.at_most(f"JSON: time of 64 MB by time of 1 MB, {what}", 80, growth[case],
                          because=because)
    return ("### Growth with the length\n\nThe last two rows are the machine's part: as many values "
            "made and destroyed as there are numbers, and one copy of the text.\n\n"
            + table(["", "1 MB", "8 MB", "64 MB", "from 1 to 64 MB", "from 8 to 64 MB"], rows))


def json_memory(goals):
    program = Program("Json.JsonTolvexBenchmark")
    rows, ratios = [], []
    for corpus in CORPORA:
        case = f"memory/{corpus}/iterations:1"
        peak, tree = program.counter(case, "peak"), program.counter(case, "tree")
        ratios.append(peak / tree)
        rows.append([corpus, f"{tree / 1e6:.1f} MB", f"{peak / 1e6:.1f} MB", f"{peak / tree:.2f}"])
    goals.at_most("JSON: peak while reading, by values, key nodes and strings", 1.15, max(ratios))
    return ("### Memory of a tree\n\nWhat the process grows by at most while a document is read, and "
            "what the tree cannot do without: its values, the nodes of its keys, long strings.\n\n"
            + table(["", "tree", "peak", "ratio"], rows))


def log_lines(goals):
    program = Program("Log.LoggerBenchmark")
    names = {"Tolvex": "BM_Logger", "LogLine": "BM_LogLine", "floor": "BM_Floor",
             "system calls": "BM_SystemCalls", "spdlog, reopening": "BM_SpdlogReopening",
             "spdlog, flushed": "BM_SpdlogFlushed", "glog, flushed": "BM_GlogFlushed"}
    contest = Contest(
        "Log lines", "log", "ns",
        "Time of a line from the call to the closed file. The system calls are those that a line "
        "needs (open, append, close), on the caller's thread; the floor makes them on a second "
        "thread, to which std::binary_semaphore hands the line. spdlog and glog write on the "
        "caller's thread; flushed means one file that stays open. The last rows are the time that "
        "the caller spends in the calls.")
    for producers in (1, 4):
        times = {name: 1e9 * program.counter(f"{case}/{producers}/manual_time", "per_line")
                 for name, case in names.items()}
        contest.add(f"{producers} producer{'s' if producers > 1 else ''}", **times)
        ratio = times["Tolvex"] / times["floor"]
        goals.at_most(f"Log: a line, {producers} producer(s), by the floor",
                      1.3 if producers == 1 else 1.5, ratio)
        glog = times["glog, flushed"]
        goals.at_most(f"Log: a line, {producers} producer(s), by glog flushed per line", 1,
                      times["Tolvex"] / glog,
                      because=f"glog's file stays open, and the caller writes; to open, append and "
                              f"close takes {times['system calls'] / glog:.2f} ×, to compose and "
                              f"to hand over to the writer the rest")
    for percent in ("p50", "p99", "p99.9"):
        latency = {name: 1e9 * program.counter(f"{case}/1/manual_time", percent)
                   for name, case in names.items()}
        contest.add(f"caller, {percent}", **latency)
    for producers in (1, 4):
        tails = [program.counter(f"{case}/{producers}/manual_time", "p99.9")
                 for case in ("BM_Logger", "BM_Floor")]
        goals.at_most(f"Log: the caller's p99.9, {producers} producer(s), by the floor's", 3,
                      tails[0] / tails[1])
    goals.at_most("Log: a line of five calls while disabled, by five calls that test a flag", 1.5,
                  program.time("BM_LineWhileDisabled") / program.time("BM_FiveCallsThatTestAFlag"))
    return contest


def threads(goals):
    asynchronous = Program("Util.IAsyncBenchmark")
    semaphore = Program("Interfaces.ISemaphoreBenchmark")
    thread = Program("Interfaces.IThreadBenchmark")
    dates = Program("Util.UtilTimeBenchmark")
    contest = Contest("Threads, semaphore, dates", "threads", "ns",
                      "To and fro between two threads that do nothing else, ISemaphore spins before it "
                      "sleeps; most of the others' time is the scheduler's.")
    contest.add("delayed callback, first instruction",
                Tolvex=asynchronous.time("IAsyncDelayZero/manual_time"),
                **{"std::thread": asynchronous.time("StdThreadDetach/manual_time"),
                   "std::async": asynchronous.time("StdAsync/manual_time")})
    for case, suffix, what in (("NotifyAndTryWait", "", "semaphore: notify and try"),
                               ("PingPong", "/real_time", "semaphore: to and fro")):
        contest.add(what, Tolvex=semaphore.time(f"{case}<TolvexSemaphore>{suffix}"),
                    **{"std::counting_semaphore":
                           semaphore.time(f"{case}<StandardSemaphore>{suffix}"),
                       "sem_t": semaphore.time(f"{case}<PosixSemaphore>{suffix}")})
    contest.add("date as in a log line", Tolvex=dates.time("NewDate"),
                **{"localtime_r and strftime": dates.time("BareString")})
    empty, bare = thread.item("EmptyPass/manual_time"), thread.item("BareLoop/manual_time")
    goals.at_most("Thread: an empty pass of the loop, more than a bare loop", 3, empty - bare, "ns")
    rows = [["start to first instruction", show(thread.time("StartToFirstInstruction/manual_time"),
                                                "ns")],
            ["stop (polls every 100 ms)", show(thread.time(
                "StopLatency/iterations:20/manual_time"), "ns")],
            ["empty pass of the loop", show(empty, "ns")],
            ["bare loop over a virtual call", show(bare, "ns")]]
    rows += [[f"notification with {count} observers", show(thread.time(f"DoCallback/{count}"), "ns")]
             for count in (0, 1, 8)]
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
    return ("### Timer\n\nHow late the calls of a periodic timer come over five seconds, and how many "
            "expiries got none.\n\n"
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
    machines = sorted({key.split(".", 1)[0] for key in figures})
    kinds = []
    for key in figures:
        kind = key.split(".", 1)[1]
        if kind not in kinds and kind != "needed" and not kind.endswith(".limit"):
            kinds.append(kind)
    rows = []
    for kind in kinds:
        values = [figures.get(f"{machine}.{kind}", "") for machine in machines]
        rows.append([kind.replace("_", " "),
                     *(f"{value:,g}" if isinstance(value, float) else f"{value:,}" if value != ""
                       else "" for value in values)])
    needed = figures["armhf.needed"]
    goals.at_most("Footprint: library for ARM (armhf), stripped",
                  figures["armhf.stripped_bytes.limit"] / 1024,
                  figures["armhf.stripped_bytes"] / 1024, "KiB")
    goals.at_most("Log: allocations of the caller per line",
                  figures["x86_64.log_allocations_per_line.limit"],
                  figures["x86_64.log_allocations_per_line"], "")
    return ("## Footprint\n\n`scripts/footprint` measures it; an idle process has both logs, the tick "
            "thread and nothing else. Needed at run time (armhf): "
            f"{', '.join(f'`{name}`' for name in needed.split())}.\n\n"
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
    rows = [[name, f"{each['main'] + each['others']:,}", f"{each['main']:,}", f"{each['others']:,}"]
            for name, each in small.items()]
    return ("## Instructions on ARM\n\n`benchmarks/Instructions/count.py` counts user instructions on "
            "32-bit ARM. The counts do not depend on the machine; those of operations with two threads "
            "vary by about 1 %. Documents, in thousands of instructions:\n\n" + "\n".join(tables)
            + "\nOne operation each. For a log line, the main thread composes it and the other thread "
            "writes it; `log-floor` is `snprintf`, open, append and close on one thread.\n\n"
            + table(["operation", "instructions", "main thread", "other thread"], rows))


# --------------------------------------------------------------------------------------------- page


def machine():
    facts = load("machine")
    peers = ", ".join(f"{name} {version}" for name, version in sorted(facts["peers"].items()))
    return table(["", ""], [
        ["Date", facts["date"]], ["Processor", f"{facts['processor']}, {facts['cores']} cores"],
        ["Kernel", facts["kernel"]], ["Compiler", facts["compiler"]],
        ["C library", facts["c_library"]], ["Peers", peers]])


def main():
    CHARTS.mkdir(parents=True, exist_ok=True)
    goals = Goals()
    log = log_lines(goals)
    thread_contest, thread_table = threads(goals)
    reading = json_contest(
        "read", "JSON: text to tree to destroyed", "json-read",
        "simdjson's tree is read-only and holds no strings of its own.", goals)
    writing = json_contest("write", "JSON: tree to text", "json-write",
                           "Speeds count the bytes of the document that was read.", goals)
    growth, memory = json_growth(goals), json_memory(goals)
    ring_contest, replace_contest, crypto_contest = ring(goals), replacing(goals), crypto(goals)
    sun = Program("Util.SunCalculatorBenchmark").time("ComputesTimesOfDays")
    arm = instructions(goals)
    foot = footprint(goals)

    sections = [
        "# Performance\n\n<!-- Made by benchmarks/report.py from benchmarks/results: do not edit. "
        "-->\n\n`scripts/bench` measures all of this in one run, three times in turn, and writes this "
        "page of the medians. The ratios are the message: the times are this machine's. A ratio in "
        "parentheses says how many times as fast Tolvex is on the same work; below 1 it is "
        "slower.\n",
        machine(),
        "## Goals\n",
        table(["What", "Goal", "Measured", "Met"], goals.rows),
        "## Against others\n",
        contest_section(reading), contest_section(writing), growth, memory,
        contest_section(log), contest_section(thread_contest), thread_table, timers(),
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
