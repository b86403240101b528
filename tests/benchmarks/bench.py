"""Measures the built application in one run, each figure beside a reference of the same run.

The measured thing and its reference take turns, so that a machine that gets slower meanwhile slows both. Runs with a
/dev and a display of its own.
"""

from __future__ import annotations

import argparse
import json
import os
import platform
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Callable, Iterator, Optional

ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests"), str(ROOT / "tests/end-to-end"), str(ROOT / "tools")]

import esp_image  # noqa: E402
from flashing_session import FlashingSession, pack  # noqa: E402
from support.built import BUILD, PROGRAM  # noqa: E402
from support.device import PORT, require_private_dev  # noqa: E402
from support.real_tool import install_tool  # noqa: E402
from support.waiting import wait_until  # noqa: E402

RESULT = BUILD / "benchmarks.json"
PROGRAMS = BUILD / "tests/benchmarks"
IMAGE_BYTES = 8 << 20
PYTHON = "/usr/bin/python3"
TOOL_BELOW_HOME = ".platformio/packages/tool-esptoolpy/esptool.py"
SETTLED_SECONDS = 0.4
JOB_LINE_BYTES = 60
LINES_OF_A_JOB = 600


@dataclass
class Row:
    """Ratios are of measured to reference, round by round; without a reference they are what was measured."""
    number: str
    what: str
    against: str
    measured: list[float]
    reference: Optional[list[float]] = None
    mark: Optional[float] = None
    at_least: bool = False
    contains_reference: bool = False  # then no ratio below 1 is possible
    unit: str = "×"
    detail: str = ""
    median: float = field(init=False)
    best: float = field(init=False)
    spread: float = field(init=False)

    def __post_init__(self) -> None:
        reference = self.reference or [1.0] * len(self.measured)
        ratios = [a / b for a, b in zip(self.measured, reference)]
        best = max if self.at_least else min
        self.median = statistics.median(ratios)
        # Of each side for itself: a disturbance makes a side slower, never faster.
        self.best = best(self.measured) / best(reference)
        quarters = statistics.quantiles(ratios, n=4, method="inclusive") if len(ratios) > 1 else ratios * 3
        self.spread = quarters[2] - quarters[0]

    def is_possible(self) -> bool:
        return not self.contains_reference or min(self.median, self.best) > 0.995

    def reaches_its_mark(self) -> bool:
        return self.mark is None or (self.median >= self.mark if self.at_least else self.median <= self.mark)

    def verdict(self) -> str:
        if not self.is_possible():
            return "disturbed: measure again"
        return "" if self.mark is None else "reached" if self.reaches_its_mark() else "MISSED"

    def figures(self) -> str:
        if not self.is_possible():
            return "— | — | —"
        return f"{self.median:.3g}{self.unit} | {self.best:.3g}{self.unit} | {self.spread:.2g}"

    def mark_text(self) -> str:
        if self.mark is None:
            return "report"
        return f"{'≥' if self.at_least else '≤'} {self.mark:g}{self.unit if self.unit != '×' else ''}"


def milliseconds(values: list[float]) -> str:
    return f"{statistics.median(values) * 1e3:.2f} ms"


# ---- Processes ----

@dataclass
class Run:
    seconds: float
    own_cpu_seconds: float  # without its children
    output: str


def run_whole(command: list[object], home: Path) -> Run:
    """A whole process, from before its start to its end."""
    environment = dict(os.environ, HOME=str(home))
    with tempfile.TemporaryFile() as output:
        start = time.monotonic()
        process = subprocess.Popen([str(part) for part in command], env=environment, stdout=output,
                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        # Still a zombie then, whose own time can be read.
        os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)
        seconds = time.monotonic() - start
        own = int(Path(f"/proc/{process.pid}/schedstat").read_text().split()[0]) * 1e-9
        status = process.wait()
        output.seek(0)
        text = output.read().decode(errors="replace")
    if status != 0:
        raise SystemExit(f"bench: {command[0]} ended with {status}: {text}")
    return Run(seconds, own, text)


@dataclass
class Start:
    seconds: float  # to the first frame
    peak_bytes: int  # a moment later


def run_window(command: list[object], home: Path, note: Path) -> Start:
    note.unlink(missing_ok=True)
    environment = dict(os.environ, HOME=str(home), QELMO_FIRST_FRAME=str(note),
                       LD_PRELOAD=str(PROGRAMS / "libfirst_frame.so"))
    start = time.monotonic_ns()
    process = subprocess.Popen([str(part) for part in command], env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        limit = time.monotonic() + 60
        while not note.exists() or not note.read_text().endswith("\n"):
            if process.poll() is not None or time.monotonic() > limit:
                raise SystemExit(f"bench: {command[0]} showed no window")
            time.sleep(0.002)
        time.sleep(SETTLED_SECONDS)
        status = Path(f"/proc/{process.pid}/status").read_text()
        peak = int(re.search(r"^VmHWM:\s+(\d+) kB", status, re.MULTILINE)[1]) * 1024
    finally:
        process.send_signal(signal.SIGKILL)
        process.wait()
    return Start((int(note.read_text()) - start) * 1e-9, peak)


class Bench:
    def __init__(self, folder: Path, rounds: int, lines: int) -> None:
        self.folder = folder
        self.rounds = rounds
        self.lines = lines
        self.jobs_in_a_window = 100 if lines > 10_000 else 10
        self.home = folder / "home"
        self.home.mkdir()
        install_tool(self.home)
        self.session = FlashingSession(folder, self.home)
        self.image = folder / "image.bin"
        self.image.write_bytes(self.firmware_like_noise())
        pack(self.session.bundle, self.image, "--name", "Benchmark", "--version", "1.0.0")
        self.program = self.session.bundle / PROGRAM
        self.packed_image = self.session.bundle / "Contents/Resources" / json.loads(
            self.session.manifest().read_text())["binary"]["path"]
        # The window's benchmark is a program of a bundle too: its main bundle is where it stands.
        self.window_program = self.program.with_name("window_benchmark")
        shutil.copy(PROGRAMS / "window_benchmark", self.window_program)

    @staticmethod
    def firmware_like_noise() -> bytes:
        image = esp_image.small_image(os.urandom(IMAGE_BYTES // 2))
        return image + os.urandom(IMAGE_BYTES - len(image))

    def rounds_of(self, measure: Callable[[], tuple[float, float]]) -> tuple[list[float], list[float]]:
        pairs = [measure() for _ in range(self.rounds)]
        return [pair[0] for pair in pairs], [pair[1] for pair in pairs]

    def values_of(self, *arguments: object, home: Optional[Path] = None) -> dict[str, float]:
        """The named values that the window's benchmark prints."""
        output = run_whole([self.window_program, *arguments], home or self.home).output
        return {name: float(value) for name, value in
                (line.split() for line in output.splitlines() if line.count(" ") == 1)}

    # ---- The rows ----

    def load(self) -> Iterator[Row]:
        output = run_whole([PROGRAMS / "load_benchmark", self.session.bundle, self.rounds * 10], self.home).output
        pairs = [tuple(map(int, line.split())) for line in output.splitlines()]
        loads, digests = [pair[0] * 1e-9 for pair in pairs], [pair[1] * 1e-9 for pair in pairs]
        self.load_seconds = statistics.median(loads)
        yield Row("1", "load of an 8 MiB release", "its digest alone, bytes in memory",
                  loads, digests, 1.25, contains_reference=True,
                  detail=f"{milliseconds(loads)} / {milliseconds(digests)}")

    def self_test(self) -> Iterator[Row]:
        tool = self.home / TOOL_BELOW_HOME
        whole, typed, own, openssl_cpu = [], [], [], []
        for _ in range(self.rounds * 2):
            self_test = run_whole([self.program, "--self-test"], self.home)
            version = run_whole([PYTHON, tool, "version"], self.home)
            openssl = run_whole(["openssl", "dgst", "-sha256", self.packed_image], self.home)
            whole.append(self_test.seconds)
            typed.append(version.seconds + openssl.seconds)
            own.append(self_test.own_cpu_seconds)
            openssl_cpu.append(openssl.own_cpu_seconds)
        yield Row("2", "--self-test, whole process", "esptool.py version, then openssl dgst",
                  whole, typed, 1.0, detail=f"{milliseconds(whole)} / {milliseconds(typed)}")
        yield Row("3", "--self-test, CPU time without the tool's", "openssl dgst, CPU time",
                  own, openssl_cpu, 1.0,
                  detail=f"{milliseconds(own)} / {milliseconds(openssl_cpu)}")

    def start(self) -> Iterator[Row]:
        note = self.folder / "first-frame"
        programs = {"ours": self.program, "bare": PROGRAMS / "bare_window", "empty": PROGRAMS / "empty_window"}
        starts: dict[str, list[Start]] = {name: [] for name in programs}
        for _ in range(self.rounds * 2):
            for name, program in programs.items():
                starts[name].append(run_window([program], self.home, note))
        seconds = {name: [one.seconds for one in several] for name, several in starts.items()}
        peaks = {name: [one.peak_bytes / (1 << 20) for one in several] for name, several in starts.items()}
        for suffix, reference, what, marks in (("a", "bare", "the same window, nothing validated, no icon", (1.15, 1.15)),
                                               ("b", "empty", "one empty window", (None, None))):
            yield Row(f"4{suffix}", "launch to the first frame, release verified", what,
                      seconds["ours"], seconds[reference], marks[0],
                      detail=f"{milliseconds(seconds['ours'])} / {milliseconds(seconds[reference])}")
            yield Row(f"5{suffix}", "peak memory of the window after its start", what,
                      peaks["ours"], peaks[reference], marks[1],
                      detail=f"{peaks['ours'][0]:.1f} MiB / {peaks[reference][0]:.1f} MiB")

    def log(self) -> Iterator[Row]:
        home = self.home_with_tool(
            f"import sys\nline = {'x' * JOB_LINE_BYTES!r} + '\\n'\n"
            f"for _ in range({self.lines}): sys.stdout.write(line)\n"
            "import time; time.sleep(0.5)  # what is still in the pipe when a tool ends is not shown\n")
        PORT.touch()
        job_rate, direct_rate, gaps, paints, first_tenths, last_tenths = [], [], [], [], [], []
        for _ in range(max(1, self.rounds // 3)):
            job = self.values_of("job", self.lines, home=home)
            if job["lines"] < self.lines:
                raise SystemExit("bench: the log does not hold every line of the tool")
            direct = self.values_of("direct", self.lines)
            job_rate.append(self.lines / (job["seconds"] - 0.5))
            direct_rate.append(self.lines / direct["seconds"])
            gaps.append(job["longest_gap_ms"])
            paints.append(job["paints_per_second"])
            first_tenths.append(job["first_tenth_s"])
            last_tenths.append(job["last_tenth_s"])
        PORT.unlink()
        lines = f"{self.lines:,} lines"
        yield Row("6", f"a job that prints {lines}: lines a second", "a text view fed directly",
                  job_rate, direct_rate, 0.8, at_least=True,
                  detail=f"{statistics.median(job_rate):,.0f}/s / {statistics.median(direct_rate):,.0f}/s")
        yield Row("7a", "longest gap of the event loop meanwhile", "—", gaps, mark=50, unit=" ms")
        yield Row("7b", "paints of the log a second meanwhile", "—", paints, mark=15, at_least=True, unit=" /s")
        yield Row("8b", "CPU time of its last tenth", "its first tenth", last_tenths, first_tenths)

    def jobs(self) -> Iterator[Row]:
        home = self.home_with_tool(f"print(({'x' * JOB_LINE_BYTES!r} + '\\n') * {LINES_OF_A_JOB})\n"
                                   "import time; time.sleep(0.05)\n")
        PORT.touch()
        runs = [self.values_of("jobs", self.jobs_in_a_window, home=home) for _ in range(max(1, self.rounds // 3))]
        PORT.unlink()
        yield Row("8a", f"CPU time of the last tenth of {self.jobs_in_a_window} jobs in one window", "of the first tenth",
                  [run["last_tenth_s"] for run in runs], [run["first_tenth_s"] for run in runs], 1.1,
                  detail=f"{runs[0]['lines']:,.0f} lines")

    def flash(self) -> Iterator[Row]:
        tool = self.home / TOOL_BELOW_HOME
        with self.session.device() as device:
            by_hand = [PYTHON, tool, "--chip", "esp32s3", "--port", PORT, "--baud", "921600", "--before",
                       "default_reset", "--after", "hard_reset", "write_flash", "--erase-all", "--flash_mode", "dio",
                       "--flash_freq", "80m", "--flash_size", "8MB", "--verify", "0x0", self.packed_image]

            def flashed(flash: Callable[[], float]) -> float:
                """The device writes its flash to a file after a job; nothing else runs until it is there."""
                device.flash.unlink(missing_ok=True)
                seconds = flash()
                wait_until(lambda: device.holds(self.packed_image.read_bytes()), "the image on the device")
                return seconds

            def once() -> tuple[float, float]:
                return (flashed(lambda: self.values_of("job")["seconds"]),
                        flashed(lambda: run_whole(by_hand, self.home).seconds))

            once()
            window, hand = self.rounds_of(once)
        yield Row("9", "press to device done, 8 MiB", "the same tool started by hand",
                  window, hand, 1.02, contains_reference=True,
                  detail=f"{milliseconds(window)} / {milliseconds(hand)}")

    def refresh(self) -> Iterator[Row]:
        output = run_whole([self.window_program, "refresh", self.rounds * 10], self.home).output
        pairs = [tuple(map(int, line.split()[1:])) for line in output.splitlines() if line.startswith("round ")]
        refreshes, loads = [pair[0] * 1e-9 for pair in pairs], [pair[1] * 1e-9 for pair in pairs]
        yield Row("10", "REFRESH BUILD, event loop blocked", "one load, same process", refreshes, loads, 1.5,
                  contains_reference=True, detail=f"{milliseconds(refreshes)} / {milliseconds(loads)}")

    def pieces(self) -> Iterator[Row]:
        one_line, many_lines, gaps = [], [], []
        for _ in range(max(1, self.rounds // 3)):
            endless = self.values_of("pieces", 1000, 65)
            one_line.append(endless["seconds"])
            gaps.append(endless["longest_gap_ms"])
            many_lines.append(self.values_of("pieces", 1000, 65, "lines")["seconds"])
        yield Row("11a", "64 KiB without a line feed in 1,000 pieces", "the same text with line feeds",
                  one_line, many_lines,
                  detail=f"{milliseconds(one_line)} / {milliseconds(many_lines)}")
        yield Row("11b", "longest gap of the event loop meanwhile", "—", gaps, unit=" ms")

    def home_with_tool(self, script: str) -> Path:
        home = self.folder / "home of the printing tool"
        (home / TOOL_BELOW_HOME).parent.mkdir(parents=True, exist_ok=True)
        (home / TOOL_BELOW_HOME).write_text(script)
        return home


ROWS = ("load", "self_test", "start", "log", "jobs", "flash", "refresh", "pieces")


# ---- The report ----

def machine() -> dict[str, object]:
    model = re.search(r"^model name\s*:\s*(.*)$", Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    return {"processor": model[1] if model else platform.machine(), "cores": os.cpu_count(),
            "kernel": platform.release(),
            "large pages": re.search(r"\[(\w+)\]", Path("/sys/kernel/mm/transparent_hugepage/enabled").read_text())[1]}


def table(rows: list[Row]) -> str:
    lines = ["| # | what | against | median | best | spread | mark | | seen |", "|---|---|---|---|---|---|---|---|---|"]
    lines += [f"| {row.number} | {row.what} | {row.against} | {row.figures()} | {row.mark_text()} | {row.verdict()} | "
              f"{row.detail} |" for row in rows]
    return "\n".join(lines)


def main() -> int:
    parser = argparse.ArgumentParser(prog="bench", description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=9, help="rounds of each row (9)")
    parser.add_argument("--lines", type=int, default=1_000_000, help="lines of the job that prints (1,000,000)")
    parser.add_argument("--no-result", action="store_true", help="write no JSON")
    parser.add_argument("rows", nargs="*", metavar="ROW", help=f"some of {', '.join(ROWS)} (all)")
    arguments = parser.parse_args()
    if unknown := set(arguments.rows) - set(ROWS):
        parser.error(f"unknown: {', '.join(sorted(unknown))}")
    require_private_dev()
    rows: list[Row] = []
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(Path(folder), arguments.rounds, arguments.lines)
        for name in arguments.rows or ROWS:
            print(f"== {name}", file=sys.stderr, flush=True)
            rows.extend(getattr(bench, name)())
    print(table(rows))
    print("\n" + ", ".join(f"{name}: {value}" for name, value in machine().items()))
    if not arguments.no_result:
        result = {"machine": machine(), "rows": [asdict(row) for row in rows]}
        RESULT.write_text(json.dumps(result, indent=2, ensure_ascii=False) + "\n")
        print(f"Written: {RESULT}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
