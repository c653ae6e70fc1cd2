"""Every figure of the benchmarks: all clients on the same work in one run.

Prints tables and writes bench.json. Ends with 1 where a client fails, and with 0 where a bound is
missed: the figures of a busy machine are no fault.
"""

import argparse
import json
import os
import platform
import re
import shutil
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

import report
from server import Server
from workloads import CLIENTS, WORKLOADS, ClientFailed, Runner, Workload

ROOT = Path(__file__).resolve().parents[2]
PACKAGES = {"libcurl": "libcurl4", "OpenSSL": "libssl3", "Boost": "libboost1.81-dev", "POCO": "libpoco-dev",
            "cpp-httplib": "libcpp-httplib-dev", "cpprestsdk": "libcpprest2.10", "nlohmann-json": "nlohmann-json3-dev",
            "nginx": "nginx", "valgrind": "valgrind"}
FOLDER_BYTES = 3 << 30  # the file that is served, one downloaded or uploaded, and room


def parse_options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true",
                        help="fewer requests and repetitions, no benchmarks of single parts")
    parser.add_argument("--only", metavar="WORKLOAD", action="append", choices=[w.key for w in WORKLOADS],
                        help="this workload and no other; may be repeated: " + ", ".join(w.key for w in WORKLOADS))
    parser.add_argument("--clients", metavar="A,B", type=lambda text: text.split(","), default=list(CLIENTS),
                        help="of " + ",".join(CLIENTS))
    parser.add_argument("--no-instructions", action="store_true", help="do not count instructions, which takes minutes")
    parser.add_argument("--documentation", action="store_true", help="write the figures into Documentation/performance.*")
    parser.add_argument("--nice", type=int, default=0, help="for the measured programs; below 0 needs root")
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "bench", help="folder of the build")
    parser.add_argument("--output", type=Path, default=Path("bench.json"))
    return parser.parse_args()


def make_folder() -> Path:
    """In memory where there is room, so that no disk has a say."""
    memory = Path("/dev/shm")
    is_roomy = memory.is_dir() and shutil.disk_usage(memory).free > FOLDER_BYTES
    return Path(tempfile.mkdtemp(prefix="tarn-bench-", dir=memory if is_roomy else None))


def output_of(*command: str | Path) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def describe_machine() -> dict:
    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    return {"cpu": cpu[1] if cpu else platform.machine(), "cores": os.cpu_count(), "kernel": platform.release(),
            "compiler": output_of(os.environ.get("CXX", "c++"), "--version").splitlines()[0]}


def package_versions() -> dict[str, str | None]:
    def version(package: str) -> str | None:
        try:
            return output_of("dpkg-query", "-W", "-f", "${Version}", package)
        except (OSError, subprocess.CalledProcessError):
            return None
    return {name: version(package) for name, package in PACKAGES.items()}


def measure(runner: Runner, workload: Workload, clients: list[str], repetitions: int, counts: bool) -> dict:
    """The summary of each client, or none where it cannot do the workload."""
    runs: dict[str, list] = {client: [] for client in clients}
    for repetition in range(repetitions):
        for client in clients if repetition % 2 == 0 else reversed(clients):
            runs[client].append(runner.measure(client, workload))
    result = {client: report.summarise(runs[client]) if runs[client][0] else None for client in clients}
    for client, figures in result.items():
        if figures and counts and workload.counted:
            count = runner.count_instructions(client, workload)
            figures["instructions"] = {"median": count}
    report.add_ratios({client: figures for client, figures in result.items() if figures}, workload.reference)
    return result


def compile_seconds() -> float:
    """Of a program of one request."""
    return float(re.search(r"([\d.]+) s", output_of(ROOT / "Benchmarks" / "CompileTime" / "measure"))[1])


def run_parts(build: Path) -> None:
    """The benchmarks of single parts, which print figures of their own."""
    for name in ("DispatchHops", "JSONBench", "GZipBench", "TLSBench"):
        print(f"\n## {name}\n", flush=True)
        subprocess.run([build / "Benchmarks" / name], check=True)


def run_workloads(options: argparse.Namespace, folder: Path, result: dict) -> list[str]:
    """Fills in the workloads of the result; their tables."""
    os.nice(options.nice)
    cores = os.sched_getaffinity(0)
    document = output_of(options.build / "Benchmarks" / "JSONBench", "--document").encode()
    tables = []
    with (Server(folder, min(cores), document, os.geteuid() == 0) as server,
          tempfile.TemporaryDirectory(prefix="downloads-", dir=options.build) as disk):
        in_memory, on_disk = (Runner(options.build / "Benchmarks" / "Clients", place, server, document, cores,
                                     0.25 if options.quick else 1) for place in (folder, Path(disk)))
        for workload in WORKLOADS:
            if options.only and workload.key not in options.only:
                continue
            runs = result["repetitions"] * workload.runs
            clients = measure(on_disk if workload.is_on_disk else in_memory, workload, options.clients, runs,
                              not options.no_instructions)
            result["workloads"][workload.key] = {"title": workload.title, "runs": runs, "clients": clients}
            number = f", {runs} runs" if workload.runs > 1 else ""
            tables.append(f"**{workload.title}{number}**\n\n{report.workload_table(workload, clients)}")
            print(f"\n{tables[-1]}", flush=True)
    return tables


def main() -> int:
    options = parse_options()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that `finally` is heeded
    result = {"machine": describe_machine(), "versions": package_versions(),
              "repetitions": 3 if options.quick else 5, "quick": options.quick, "workloads": {}}
    folder = make_folder()
    try:
        tables = run_workloads(options, folder, result)
    except ClientFailed as failure:
        print(f"A client failed: {failure}", file=sys.stderr)
        return 1
    finally:
        shutil.rmtree(folder)
    if not options.only:
        result["compileSeconds"] = compile_seconds()
        tables.append(f"A program of one request compiles in {result['compileSeconds']:.2f} s at -O0.")
        print(f"\n{tables[-1]}")
    result["bounds"] = report.Bounds(result["workloads"]).results
    if result["bounds"]:
        tables.append(report.bounds_table(result["bounds"]))
        print(f"\n{tables[-1]}", flush=True)
    options.output.write_text(json.dumps(result, indent=1, ensure_ascii=False) + "\n")
    if options.documentation:
        documentation = ROOT / "Documentation"
        report.write_documentation(documentation / "performance.md", result, tables)
        report.write_plot(documentation / "performance.svg",
                          [w for w in WORKLOADS if w.key in result["workloads"]
                           and (w.counted or w.name == "burst")], result)
    if not options.quick and not options.only:
        run_parts(options.build)
    return 0


if __name__ == "__main__":
    sys.exit(main())
