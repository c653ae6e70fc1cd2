"""Medians, ratios, bounds, tables and the plot, from the runs of one bench."""

import statistics
import subprocess
from collections.abc import Callable
from pathlib import Path

from server import FILE_BYTES, SMALL_BODY
from workloads import CLIENTS, Figures, Workload

FILE_MEBIBYTES = FILE_BYTES / (1 << 20)
MARKERS = ("<!-- figures -->", "<!-- end of figures -->")


def summarise(runs: list[Figures]) -> dict[str, dict[str, float]]:
    """Of each field the median and the extremes."""
    summary = {}
    for field in runs[0]:
        values = [run[field] for run in runs]
        summary[field] = {"median": statistics.median(values), "min": min(values), "max": max(values)}
    return summary


def add_ratios(clients: dict, reference: str) -> None:
    """How many times the reference's median each median is."""
    if reference not in clients:
        return
    for figures in clients.values():
        for field, values in figures.items():
            other = clients[reference].get(field, {}).get("median")
            if other:
                values["ratio"] = round(values["median"] / other, 4)


class Bounds:
    """Each bound with its value, where the run has the figures for it."""

    def __init__(self, workloads: dict) -> None:
        self.workloads = workloads
        self.results: list[dict] = []
        for key in ("concurrent-6", "concurrent-64", "http2"):
            self.add(f"{key}: CPU per request, times libcurl's loop", lambda: self.ratio(key), at_most=1.30)
        self.add("sequential, one core: CPU per request, times libcurl easy",
                 lambda: self.ratio("sequential", "CurlEasy"), at_most=1.35)
        self.add("sequential, one core: p50 above libcurl easy, us",
                 lambda: self.difference("sequential"), at_most=15)
        self.add("sequential, unpinned: p50 above libcurl easy, us",
                 lambda: self.difference("sequential-unpinned"), at_most=90)
        self.add("json: requests per CPU second, times libcurl's loop with nlohmann",
                 lambda: 1 / self.ratio("json"), at_least=4)
        self.add("burst: memory of a queued request beyond its body, bytes",
                 lambda: self.of("burst", "peakBytesPerRequest") - len(SMALL_BODY), at_most=6 * 1024)
        for key in ("download", "download-disk", "upload"):
            self.add(f"{key}: bytes per CPU second, times libcurl easy",
                     lambda: 1 / self.ratio(key, "CurlEasy"), at_least=0.95)
            self.add(f"{key}: peak memory, MiB", lambda: self.of(key, "peakKiB") / 1024, at_most=40)

    def add(self, name: str, value: Callable[[], float], at_most: float | None = None,
            at_least: float | None = None) -> None:
        try:
            measured = value()
        except KeyError:  # a workload or a client was left out
            return
        met = measured <= at_most if at_most is not None else measured >= at_least
        kind = "at most" if at_most is not None else "at least"
        self.results.append({"name": name, "value": measured, "kind": kind,
                          "limit": at_most if at_most is not None else at_least, "met": met})

    def of(self, key: str, field: str, client: str = "TarnService") -> float:
        return self.workloads[key]["clients"][client][field]["median"]

    def ratio(self, key: str, other: str = "CurlLoop") -> float:
        return self.of(key, "cpuMicroseconds") / self.of(key, "cpuMicroseconds", other)

    def difference(self, key: str) -> float:
        return self.of(key, "p50") - self.of(key, "p50", "CurlEasy")


def number(value: float) -> str:
    """Three digits, or all before the point."""
    places = 0 if abs(value) >= 100 else 1 if abs(value) >= 10 else 2
    return f"{value:,.{places}f}"


def table(rows: list[list[str]]) -> str:
    """A Markdown table whose columns are aligned; all but the first are numbers."""
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    rule = ["-" * widths[0]] + ["-" * (width - 1) + ":" for width in widths[1:]]
    lines = []
    for row in [rows[0], rule, *rows[1:]]:
        cells = [row[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines)


Column = tuple[str, Callable[[dict], str]]


def columns(workload: Workload) -> list[Column]:
    def median(field: str, scale: float = 1) -> Callable[[dict], str]:
        return lambda figures: number(figures[field]["median"] * scale) if field in figures else "–"

    def spread(scale: float = 1) -> Callable[[dict], str]:
        def extremes(cpu: dict) -> str:
            return f"{number(cpu['min'] * scale)}–{number(cpu['max'] * scale)}"
        return lambda figures: extremes(figures["cpuMicroseconds"])

    def times(figures: dict) -> str:
        ratio = figures["cpuMicroseconds"].get("ratio")
        return f"{ratio:.2f}" if ratio else "–"

    if workload.reference == "CurlEasy":
        return [("CPU ms", median("cpuMicroseconds", 1e-3)), ("min–max", spread(1e-3)), ("× easy", times),
                ("MiB per CPU s", lambda figures: number(FILE_MEBIBYTES / figures["cpuMicroseconds"]["median"] * 1e6)),
                ("MiB/s", median("requestsPerSecond", FILE_MEBIBYTES)), ("peak MiB", median("peakKiB", 1 / 1024))]
    result = [("CPU µs", median("cpuMicroseconds")), ("min–max", spread()), ("× loop", times)]
    if workload.key == "start":
        return result + [("wall µs", median("p50")), ("peak MiB", median("peakKiB", 1 / 1024))]
    result += [("requests/s", median("requestsPerSecond")), ("p50 µs", median("p50")), ("p99 µs", median("p99")),
               ("peak MiB", median("peakKiB", 1 / 1024))]
    if workload.counted:
        result.append(("instructions", median("instructions")))
    if workload.name == "burst":
        result += [("peak bytes each", median("peakBytesPerRequest")), ("kept bytes each", median("keptBytesPerRequest"))]
    return result


def workload_table(workload: Workload, clients: dict) -> str:
    shown = columns(workload)
    rows = [["client", *(title for title, _ in shown)]]
    for client, figures in clients.items():
        rows.append([CLIENTS.get(client, client), *((cell(figures) for _, cell in shown) if figures else ["–"] * len(shown))])
    return table(rows)


def bounds_table(bounds: list[dict]) -> str:
    rows = [["bound", "measured", "limit", "met"]]
    for bound in bounds:
        limit = ("≤ " if bound["kind"] == "at most" else "≥ ") + number(bound["limit"])
        rows.append([bound["name"], number(bound["value"]), limit, "yes" if bound["met"] else "no"])
    return table(rows)


def machine_lines(result: dict) -> str:
    machine = result["machine"]
    versions = ", ".join(f"{name} {version}" for name, version in result["versions"].items() if version)
    return (f"{machine['cpu']}, {machine['cores']} cores, {machine['kernel']}, {machine['compiler']}. {versions}. "
            f"Medians of {result['repetitions']} runs where a table does not say another number.")


def write_documentation(path: Path, result: dict, tables: list[str]) -> None:
    """Puts the tables between the markers."""
    text = path.read_text()
    before, rest = text.split(MARKERS[0])
    after = rest.split(MARKERS[1])[1]
    body = "\n\n".join([machine_lines(result), *tables])
    path.write_text(f"{before}{MARKERS[0]}\n{body}\n{MARKERS[1]}{after}")


PLOT = """
set terminal svg size 960,620 font "sans-serif,12" background "#ffffff"
set output "{output}"
set multiplot layout 2,3 title "CPU microseconds of the client for one request" font ",15" \\
  margins 0.17,0.97,0.03,0.86 spacing 0.025,0.13
set style fill solid noborder
set boxwidth 0.7
set border 0
unset key
unset xtics
set yrange [{rows} - 0.4:-0.6]
"""


def write_plot(path: Path, workloads: list[Workload], result: dict) -> None:
    """Bars of the CPU time of a request: a panel for each workload, the library's bar dark."""
    clients = [client for client in CLIENTS if any(
        result["workloads"][workload.key]["clients"].get(client) for workload in workloads)]
    script = [PLOT.format(output=path, rows=len(clients))]
    for index, workload in enumerate(workloads):
        figures = result["workloads"][workload.key]["clients"]
        values = [(row, figures[client]["cpuMicroseconds"]["median"] if figures.get(client) else 0, client)
                  for row, client in enumerate(clients)]
        labels = ", ".join(f'"{CLIENTS[client]}" {row}' for row, client in enumerate(clients))
        script.append(f"set ytics scale 0 ({labels})" if index % 3 == 0 else "unset ytics")
        script.append(f'set title "{workload.title.replace(", ", chr(92) + "n", 1)}" font ",12"')
        script.append(f"set xrange [0:{max(value for _, value, _ in values) * 1.25}]")
        lines = [f'{row} {value} {"0x1f4e79" if client == "TarnService" else "0x9fb7cc"} "{number(value) if value else "–"}"'
                 for row, value, client in values]
        script.append("$data << end\n" + "\n".join(lines) + "\nend")
        script.append("plot $data using (0):1:(0):2:($1-0.35):($1+0.35):3 with boxxyerror lc rgb variable, "
                      '$data using 2:1:4 with labels left offset 0.5,0')
    subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)
