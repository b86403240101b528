"""Measures the built application. Each figure is compared with a reference from the same run; the two alternate."""

from __future__ import annotations

import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable, Iterator, NamedTuple, Optional

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "tests"), str(ROOT / "tools")]

import esp_image  # noqa: E402
from support.built import BUILD, BUNDLE, MANIFEST, PROGRAM, TOOL  # noqa: E402
from support.child import PYTHON  # noqa: E402
from support.device import PORT, SimulatedDevice, require_private_dev  # noqa: E402
from support.real_tool import install_tool  # noqa: E402
from support.waiting import wait_until  # noqa: E402

PROGRAMS = BUILD / "benchmarks"
IMAGE_BYTES = 8 << 20
SETTLED_SECONDS = 0.4
LINES_OF_A_JOB = 600


def milliseconds(seconds: float) -> str:
    return f"{seconds * 1e3:.2f} ms"


@dataclass
class Row:
    """The ratios compare measured with reference, round by round. Without a reference they are the measured values."""
    number: str
    what: str
    against: str
    measured: list[float]
    reference: Optional[list[float]] = None
    mark: Optional[float] = None
    at_least: bool = False
    contains_reference: bool = False  # then no ratio below 1 is possible
    unit: str = "×"
    shown: Callable[[float], str] = milliseconds

    def line(self) -> str:
        ratios = [a / b for a, b in zip(self.measured, self.reference or [1.0] * len(self.measured))]
        median = statistics.median(ratios)
        quarters = statistics.quantiles(ratios, n=4, method="inclusive") if len(ratios) > 1 else ratios * 3
        sides = (self.measured, self.reference) if self.reference else ()
        seen = " / ".join(self.shown(statistics.median(side)) for side in sides)
        figures = f"{median:.3g}{self.unit} | {quarters[2] - quarters[0]:.2g}"
        mark, verdict = "report", ""
        if self.mark is not None:
            mark = f"{'≥' if self.at_least else '≤'} {self.mark:g}{self.unit.strip('×')}"
            verdict = "reached" if (median >= self.mark if self.at_least else median <= self.mark) else "MISSED"
        if self.contains_reference and median < 0.995:
            figures, verdict = "— | —", "disturbed: measure again"
        return f"| {self.number} | {self.what} | {self.against} | {figures} | {mark} | {verdict} | {seen} |"


class Run(NamedTuple):
    seconds: float
    own_cpu_seconds: float  # without its children
    output: str

    def pairs(self) -> tuple[list[float], ...]:
        """Two columns of nanoseconds, as seconds."""
        lines = [line.split() for line in self.output.splitlines()]
        return tuple([int(value) * 1e-9 for value in column] for column in zip(*lines))

    def values(self) -> dict[str, float]:
        return {name: float(value) for name, value in (line.split() for line in self.output.splitlines())}


class Bench:
    def __init__(self, folder: Path, rounds: int, lines: int) -> None:
        self.folder, self.rounds, self.lines = folder, rounds, lines
        self.jobs_in_a_window = 100 if lines > 10_000 else 10
        self.home = folder / "home"
        self.home.mkdir()
        install_tool(self.home)
        bundle = folder / BUNDLE.name
        shutil.copytree(BUNDLE, bundle, symlinks=True)
        image = esp_image.small_image(os.urandom(IMAGE_BYTES // 2))
        (folder / "image.bin").write_bytes(image + os.urandom(IMAGE_BYTES - len(image)))
        subprocess.run([BUILD / "tools/pack-release", "--bundle", bundle, "--image", folder / "image.bin",
                        "--name", "Benchmark", "--version", "1.0.0"], check=True, stdout=subprocess.DEVNULL)
        manifest = bundle / MANIFEST
        self.image = manifest.with_name(json.loads(manifest.read_text())["binary"]["path"])
        self.program = bundle / PROGRAM
        # In the bundle, because the benchmark reads the release of its own bundle.
        self.window_program = self.program.with_name("window_benchmark")
        shutil.copy(PROGRAMS / "window_benchmark", self.window_program)

    def run(self, *command: object, home: Optional[Path] = None) -> Run:
        """Runs a process to its end. The time includes its start."""
        with tempfile.TemporaryFile("w+") as output:
            start = time.monotonic()
            process = subprocess.Popen(list(map(str, command)), env=dict(os.environ, HOME=str(home or self.home)),
                                       stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
            # The process is still a zombie, so its own CPU time can be read.
            os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
            seconds = time.monotonic() - start
            own = int(Path(f"/proc/{process.pid}/schedstat").read_text().split()[0]) * 1e-9
            status = process.wait()
            output.seek(0)
            text = output.read()
        if status != 0:
            raise SystemExit(f"bench: {command[0]} ended with {status}: {text}")
        return Run(seconds, own, text)

    def window(self, *arguments: object, home: Optional[Path] = None) -> Run:
        return self.run(self.window_program, *arguments, home=home)

    def start_of(self, *command: object) -> tuple[float, float]:
        """The seconds until a window's first frame, and its peak memory in MiB shortly afterwards."""
        note = self.folder / "first-frame"
        note.unlink(missing_ok=True)
        environment = dict(os.environ, HOME=str(self.home), QELMO_FIRST_FRAME=str(note), QT_XCB_NO_MITSHM="1",
                           LD_PRELOAD=str(PROGRAMS / "libfirst_frame.so"))
        start = time.monotonic_ns()
        process = subprocess.Popen(list(map(str, command)), env=environment)
        wait_until(lambda: note.exists() and note.read_text().endswith("\n"), f"a window of {command}")
        time.sleep(SETTLED_SECONDS)
        peak = re.search(r"^VmHWM:\s+(\d+) kB", Path(f"/proc/{process.pid}/status").read_text(), re.MULTILINE)[1]
        process.kill()
        process.wait()
        return (int(note.read_text()) - start) * 1e-9, int(peak) / 1024

    def home_with_tool_that_prints(self, lines: int, pause: float) -> Path:
        """The tool pauses before it exits, because text that is still in the pipe at its exit is not shown."""
        home = self.folder / "home of the printing tool"
        (home / TOOL).parent.mkdir(parents=True, exist_ok=True)
        (home / TOOL).write_text(f"for _ in range({lines}): print({'x' * 60!r})\nimport time; time.sleep({pause})\n")
        PORT.touch()
        return home

    def some_rounds(self) -> range:
        """For slow measurements."""
        return range(max(1, self.rounds // 3))

    # ---- The rows ----

    def load(self) -> Iterator[Row]:
        yield Row("1", "load of an 8 MiB release", "its digest alone, bytes in memory",
                  *self.window("load", self.rounds * 10).pairs(), 1.25, contains_reference=True)

    def self_test(self) -> Iterator[Row]:
        rounds = [[self.run(self.program, "--self-test"), self.run(PYTHON, self.home / TOOL, "version"),
                   self.run("openssl", "dgst", "-sha256", self.image)] for _ in range(self.rounds * 2)]
        yield Row("2", "--self-test, whole process", "esptool.py version, then openssl dgst",
                  [ours.seconds for ours, _, _ in rounds],
                  [version.seconds + openssl.seconds for _, version, openssl in rounds], 1.0)
        yield Row("3", "--self-test, CPU time without the tool's", "openssl dgst, CPU time",
                  [ours.own_cpu_seconds for ours, _, _ in rounds],
                  [openssl.own_cpu_seconds for _, _, openssl in rounds], 1.0)

    def start(self) -> Iterator[Row]:
        programs = [[self.program], [self.window_program, "bare"], [PROGRAMS / "empty_window"]]
        starts = [[self.start_of(*program) for program in programs] for _ in range(self.rounds * 2)]
        ours, *references = zip(*starts)
        for suffix, reference, what, mark in (("a", references[0], "the same window, nothing validated, no icon", 1.15),
                                              ("b", references[1], "one empty window", None)):
            yield Row(f"4{suffix}", "launch to the first frame, release verified", what,
                      [seconds for seconds, _ in ours], [seconds for seconds, _ in reference], mark)
            yield Row(f"5{suffix}", "peak memory of the window after its start", what,
                      [peak for _, peak in ours], [peak for _, peak in reference], mark,
                      shown=lambda mebibytes: f"{mebibytes:.1f} MiB")

    def log(self) -> Iterator[Row]:
        home = self.home_with_tool_that_prints(self.lines, pause=0.5)
        runs = [(self.window("jobs", 1, self.lines, home=home).values(), self.window("direct", self.lines).values())
                for _ in self.some_rounds()]
        PORT.unlink()
        jobs = [job for job, _ in runs]
        if min(job["lines"] for job in jobs) < self.lines:
            raise SystemExit("bench: the log does not hold every line of the tool")
        yield Row("6", f"a job that prints {self.lines:,} lines: lines a second", "a text view fed directly",
                  [self.lines / (job["seconds"] - 0.5) for job in jobs],
                  [self.lines / direct["seconds"] for _, direct in runs], 0.8, at_least=True,
                  shown=lambda rate: f"{rate:,.0f}/s")
        yield Row("7a", "longest gap of the event loop meanwhile", "—",
                  [job["longest_gap_ms"] for job in jobs], mark=50, unit=" ms")
        yield Row("7b", "paints of the log a second meanwhile", "—",
                  [job["paints_per_second"] for job in jobs], mark=15, at_least=True, unit=" /s")
        yield self.tenths("8b", "CPU time of the last tenth of that job", jobs, None)

    def jobs(self) -> Iterator[Row]:
        home = self.home_with_tool_that_prints(LINES_OF_A_JOB, pause=0.05)
        runs = [self.window("jobs", self.jobs_in_a_window, LINES_OF_A_JOB, home=home).values()
                for _ in self.some_rounds()]
        PORT.unlink()
        yield self.tenths("8a", f"CPU time of the last tenth of {self.jobs_in_a_window} jobs in one window", runs, 1.1)

    @staticmethod
    def tenths(number: str, what: str, runs: list[dict[str, float]], mark: Optional[float]) -> Row:
        return Row(number, what, "the first tenth", [run["last_tenth_s"] for run in runs],
                   [run["first_tenth_s"] for run in runs], mark)

    def flash(self) -> Iterator[Row]:
        by_hand = [PYTHON, self.home / TOOL, "--chip", "esp32s3", "--port", PORT, "--baud", "921600", "--before",
                   "default_reset", "--after", "hard_reset", "write_flash", "--erase-all", "--flash_mode", "dio",
                   "--flash_freq", "80m", "--flash_size", "8MB", "--verify", "0x0", self.image]
        with SimulatedDevice(self.folder) as device:
            def seconds_of(flash: Callable[[], float]) -> float:
                """After a job the device writes its flash to a file. Nothing else runs until the file is there."""
                device.dump.unlink(missing_ok=True)
                seconds = flash()
                wait_until(lambda: device.holds(self.image.read_bytes()), "the image on the device")
                return seconds

            rounds = [[seconds_of(lambda: self.window("jobs", 1, 0).values()["seconds"]),
                       seconds_of(lambda: self.run(*by_hand).seconds)] for _ in range(self.rounds + 1)]
        yield Row("9", "press to device done, 8 MiB", "the same tool started by hand",
                  *map(list, zip(*rounds[1:])), 1.02, contains_reference=True)

    def refresh(self) -> Iterator[Row]:
        yield Row("10", "REFRESH BUILD, event loop blocked", "one load, same process",
                  *self.window("refresh", self.rounds * 10).pairs(), 1.5, contains_reference=True)

    def pieces(self) -> Iterator[Row]:
        runs = [[self.window("pieces", 1000, 65, *lines).values() for lines in ((), ("lines",))]
                for _ in self.some_rounds()]
        yield Row("11a", "64 KiB without a line feed in 1,000 pieces", "the same text with line feeds",
                  [endless["seconds"] for endless, _ in runs], [lines["seconds"] for _, lines in runs])
        yield Row("11b", "longest gap of the event loop meanwhile", "—",
                  [endless["longest_gap_ms"] for endless, _ in runs], unit=" ms")


ROWS = ("load", "self_test", "start", "log", "jobs", "flash", "refresh", "pieces")


def main() -> None:
    parser = argparse.ArgumentParser(prog="bench", description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=9, help="rounds of each row (9)")
    parser.add_argument("--lines", type=int, default=1_000_000, help="lines of the job that prints (1,000,000)")
    parser.add_argument("rows", nargs="*", metavar="ROW", help=f"some of {', '.join(ROWS)} (all)")
    arguments = parser.parse_args()
    if unknown := set(arguments.rows) - set(ROWS):
        parser.error(f"unknown: {', '.join(sorted(unknown))}")
    require_private_dev()
    print("| # | what | against | median | spread | mark | | seen |\n|---|---|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(Path(folder), arguments.rounds, arguments.lines)
        for name in arguments.rows or ROWS:
            for row in getattr(bench, name)():
                print(row.line(), flush=True)


if __name__ == "__main__":
    main()
