"""Runs the whole program headless where the system refuses descriptors, processes, memory or calls."""

from __future__ import annotations

import os
import resource
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import BUNDLE, PROGRAM  # noqa: E402
from support.child import CANNOT_RUN_HERE, ORDINARY_USER, limit  # noqa: E402
from test_headless_self_test import HeadlessTest, report  # noqa: E402

STRACE = shutil.which("strace")
SANITIZED = any(mark in (BUNDLE / PROGRAM).read_bytes() for mark in (b"__asan_init", b"__tsan_init"))


class Limits(HeadlessTest):
    # fault: the program may have one file open at a time and no pipe, or the user may start no more processes
    # seen: "start /usr/bin/python3: Too many open files", "start /usr/bin/python3: Resource temporarily unavailable"
    def test_of_descriptors_and_processes_fail_it_in_one_sentence(self):
        self.assert_fails("start /usr/bin/python3: Too many open files",
                          self.self_test(**limit(resource.RLIMIT_NOFILE, 4)))
        self.assert_fails("start /usr/bin/python3: Resource temporarily unavailable",
                          self.self_test(**limit(resource.RLIMIT_NPROC, 0), **ORDINARY_USER))

    # fault: there is no memory for the image
    # seen: "Cannot allocate memory"
    @unittest.skipIf(SANITIZED, "a sanitizer needs more memory than that for itself")
    def test_of_memory_fails_it_in_one_sentence(self):
        self.app.write_manifest(**{"binary.size": 200 << 20})
        os.truncate(self.app.image, 200 << 20)
        self.assert_fails(f"read {self.app.image}: Cannot allocate memory",
                          self.self_test(**limit(resource.RLIMIT_AS, 128 << 20)))

    # fault: the user's files may not grow, and standard output is a file
    # seen: "write standard output: File too large"
    def test_of_file_size_fails_it_in_one_sentence(self):
        with open(self.folder / "report", "w", encoding="utf-8") as file:
            self.assert_fails("write standard output: File too large",
                              self.self_test(stdout=file, **limit(resource.RLIMIT_FSIZE, 0)))


@unittest.skipUnless(sys.platform == "linux", "strace is for Linux")
class Calls(HeadlessTest):
    def run_with(self, injected: str, *paths: object) -> subprocess.CompletedProcess:
        """Runs with one fault injected into the system calls, into all of them or into those on these paths."""
        chosen = [word for path in paths for word in ("-P", path)]
        # The leak checker does not work under a tracer. Only builds with sanitizers have it.
        return self.self_test(prefix=(STRACE, "--quiet=path-resolution", "-o", "/dev/null", *chosen, "-e",
                                      f"inject={injected}", "-E", "ASAN_OPTIONS=detect_leaks=0"))

    # fault: signals interrupt every second call that reads a file, waits for the tool or writes the report
    def test_that_are_interrupted_are_made_again(self):
        for injected, paths in (("openat,read:error=EINTR:when=1+2", (self.app.manifest_file, self.app.image)),
                                ("wait4,write:error=EINTR:when=1+2", ())):
            with self.subTest(injected):
                self.assert_passes(self.run_with(injected, *paths))

    # fault: the disk fails while the release is read
    # seen: "Input/output error"
    def test_that_fail_name_the_file(self):
        for path in (self.app.manifest_file, self.app.image):
            with self.subTest(path):
                self.assert_fails(f"read {path}: Input/output error", self.run_with("read:error=EIO", path))

    # fault: the program cannot find out where it is
    # seen: "The flasher cannot run: read /proc/self/exe: Permission denied"
    def test_that_fail_before_the_release_is_known_are_named_too(self):
        result = self.run_with("readlink:error=EACCES", "/proc/self/exe")
        self.assertEqual((result.stdout, result.stderr, result.returncode),
                         ("", "The flasher cannot run: read /proc/self/exe: Permission denied\n", 1))


class Tool(HeadlessTest):
    # fault: a process that the tool started outlives it and keeps the pipe open
    def test_that_leaves_a_process_behind_is_read_to_the_end_of_the_pipe(self):
        self.app.tool.write_text("import array, fcntl, os, signal, termios\nprint('4.7.0', flush=True)\n"
                                 "if os.fork(): os._exit(0)\nsignal.alarm(60)\nunread = array.array('i', [1])\n"
                                 "while unread[0]: fcntl.ioctl(1, termios.FIONREAD, unread)\nprint('late')")
        self.assert_passes(self.self_test(), report(esptool="late"))


if __name__ == "__main__":
    if STRACE is None and sys.platform == "linux":
        print("this program is missing: strace", file=sys.stderr)
        sys.exit(CANNOT_RUN_HERE)
    unittest.main()
