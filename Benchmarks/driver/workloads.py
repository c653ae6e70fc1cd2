"""What is measured, and how a client program is run for it."""

import contextlib
import json
import os
import re
import resource
import statistics
import subprocess
import time
from collections.abc import Iterator
from dataclasses import dataclass, replace
from pathlib import Path

from server import FILE_BYTES, SMALL_BODY, HeaderListener, Server

CLIENTS = {
    "TarnService": "TarnService",
    "CurlLoop": "libcurl multi, tuned",
    "CurlEasy": "libcurl easy",
    "Beast": "Boost.Beast, coroutines",
    "POCO": "POCO",
    "HTTPLib": "cpp-httplib",
    "CppREST": "cpprestsdk",
    "Socket": "bare epoll loop",
}
# Others, named with --clients, go by the names of their programs.
CANNOT = 64  # the status of a client that cannot do a workload

Figures = dict[str, float]


@dataclass(frozen=True)
class Workload:
    key: str
    title: str
    name: str  # that the client programs know
    path: str
    requests: int
    warm_up: int = 0
    in_flight: int = 1
    connections: int = 1
    is_pinned: bool = True
    is_secure: bool = False
    reference: str = "CurlLoop"
    counted: int = 0  # requests whose instructions are counted
    runs: int = 1  # for each repetition
    is_on_disk: bool = False  # what the client writes


WORKLOADS = (
    Workload("sequential", "Sequential small GET, client on one core", "sequential", "/small", 8000, 200,
             counted=300),
    Workload("sequential-unpinned", "Sequential small GET, left to the scheduler", "sequential", "/small",
             8000, 200, is_pinned=False),
    Workload("concurrent-6", "64 in flight over 6 connections", "concurrent", "/small", 30000, 1000, 64, 6,
             counted=1000),
    Workload("concurrent-6-unpinned", "64 in flight over 6 connections, left to the scheduler", "concurrent",
             "/small", 30000, 1000, 64, 6, is_pinned=False),
    Workload("concurrent-64", "64 in flight over 64 connections", "concurrent", "/small", 30000, 1000, 64, 64,
             counted=1000),
    Workload("json", "10 KiB JSON into a struct, 64 in flight over 6 connections", "json", "/orders.json",
             6000, 300, 64, 6, counted=100),
    Workload("http2", "HTTP/2 over TLS, 64 streams on one connection", "http2", "/small", 20000, 1000, 64, 1,
             is_secure=True, counted=1000),
    # A virtual machine takes new memory for a file from its host, at times at once and at times not: runs of
    # one client differ by more than those of two clients.
    Workload("download", "1 GiB to a file in memory", "download", "/file", 1, reference="CurlEasy", runs=3),
    Workload("download-disk", "1 GiB to a file on a disk", "download", "/file", 1, reference="CurlEasy", runs=3,
             is_on_disk=True),
    Workload("upload", "1 GiB from a file", "upload", "/put", 1, reference="CurlEasy", runs=3),
    Workload("burst", "10,000 requests queued at once, at most 6 connections", "burst", "/small", 10000, 200,
             10000, 6),
    Workload("start", "Process start to the end after the first answer", "sequential", "/small", 1),
)


class ClientFailed(Exception):
    pass


@contextlib.contextmanager
def on_cores(cores: set[int]) -> Iterator[None]:
    """This process and those that it starts meanwhile."""
    before = os.sched_getaffinity(0)
    os.sched_setaffinity(0, cores)
    try:
        yield
    finally:
        os.sched_setaffinity(0, before)


def children_cpu_seconds() -> float:
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


class Runner:
    """Runs client programs against the server. What they write goes into `folder`."""

    def __init__(self, programs: Path, folder: Path, server: Server, document: bytes, cores: set[int],
                 share: float) -> None:
        self.programs = programs
        self.folder = folder
        self.server = server
        self.document = document
        self.cores = cores  # all; the last is the client's
        self.share = share  # of the requests
        self.environment = {"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "TMPDIR": str(folder)}
        self.headers = {name: self.sent_headers(name) for name in ("sequential", "json", "upload")}

    def measure(self, client: str, workload: Workload) -> Figures | None:
        """The figures of one run, or none where the client cannot do it."""
        requests = max(1, round(workload.requests * (1 if workload.name == "burst" else self.share)))
        with on_cores({max(self.cores)} if workload.is_pinned else self.cores):
            if workload.key == "start":
                return self.measure_starts(client, workload)
            return self.run(self.arguments(client, workload, requests))

    def count_instructions(self, client: str, workload: Workload) -> float | None:
        """User-space instructions of one request: what so many more of them add to a run."""
        warmed_up = replace(workload, warm_up=workload.in_flight)
        totals = []
        for requests in (workload.counted, 2 * workload.counted):
            valgrind = ["valgrind", "--tool=callgrind", "--fair-sched=try", "--callgrind-out-file=/dev/null"]
            finished = self.start(valgrind + self.arguments(client, warmed_up, requests))
            if finished.returncode == CANNOT:
                return None
            totals.append(int(re.search(r"Collected : (\d+)", finished.stderr)[1]))
        return (totals[1] - totals[0]) / workload.counted

    def measure_starts(self, client: str, workload: Workload) -> Figures | None:
        arguments = self.arguments(client, workload, 1)
        runs = []
        for _ in range(max(3, round(15 * self.share))):
            cpu_before = children_cpu_seconds()
            start = time.perf_counter()
            figures = self.run(arguments)
            seconds = time.perf_counter() - start
            if figures is None:
                return None
            runs.append({
                "cpuMicroseconds": (children_cpu_seconds() - cpu_before) * 1e6,
                "p50": seconds * 1e6, "p99": seconds * 1e6, "requestsPerSecond": 1 / seconds,
                "peakKiB": figures["peakKiB"]})
        return {field: statistics.median(run[field] for run in runs) for field in runs[0]}

    def arguments(self, client: str, workload: Workload, requests: int) -> list[str]:
        name = workload.name
        body_bytes = {"json": len(self.document), "download": FILE_BYTES}.get(name, len(SMALL_BODY))
        result = [str(self.programs / f"{client}Client"), name, self.server.url(workload.path, workload.is_secure)]
        options = {"--requests": requests, "--warm-up": workload.warm_up, "--in-flight": workload.in_flight,
                   "--connections": workload.connections, "--body-bytes": body_bytes}
        if workload.is_secure:
            options["--authority"] = self.server.authority
        if name == "download":
            options["--file"] = self.folder / "downloaded"
        if name == "upload":
            options["--file"] = self.server.file
        for option, value in options.items():
            result += [option, str(value)]
        for header in self.headers.get(name, self.headers["sequential"]):
            result += ["--header", header]
        return result

    def run(self, arguments: list[str]) -> Figures | None:
        (self.folder / "downloaded").unlink(missing_ok=True)
        finished = self.start(arguments)
        return None if finished.returncode == CANNOT else json.loads(finished.stdout)

    def start(self, arguments: list[str]) -> subprocess.CompletedProcess[str]:
        try:
            finished = subprocess.run(arguments, env=self.environment, capture_output=True, text=True, timeout=180)
        except subprocess.TimeoutExpired as expired:
            raise ClientFailed(str(expired)) from None
        if finished.returncode not in (0, CANNOT):
            raise ClientFailed(f"status {finished.returncode} of {' '.join(arguments)}\n{finished.stderr}")
        return finished

    def sent_headers(self, name: str) -> list[str]:
        """The header lines of the library's request, which every other client is to send too."""
        upload = self.folder / "few-bytes"
        upload.write_bytes(b"few bytes")
        body = self.document if name == "json" else SMALL_BODY.encode()
        with HeaderListener(body) as listener:
            self.start([str(self.programs / "TarnServiceClient"), name, listener.url,
                        "--body-bytes", str(len(body)), "--file", str(upload)])
        own = {"host", "connection", "content-length", "transfer-encoding"}
        return [line for line in listener.lines if line.split(":")[0].lower() not in own]
