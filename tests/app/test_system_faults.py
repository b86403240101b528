"""Runs the whole program headless in a system that refuses it something: descriptors, processes, memory, calls."""

from __future__ import annotations

import os
import resource
import shutil
import subprocess
import sys
import unittest

from test_headless_self_test import EXECUTABLE, NOBODY, HeadlessTest

STRACE = shutil.which("strace")
SANITIZED = any(mark in EXECUTABLE.read_bytes() for mark in (b"__asan_init", b"__tsan_init"))
ORDINARY_USER = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}


def limit(kind: int, value: int) -> dict:
    """Options of a run in which the program, but not this one, has the limit."""
    return {"preexec_fn": lambda: resource.setrlimit(kind, (value, value))}


class Limits(HeadlessTest):
    # fault: the program may open one file at a time and no pipe
    # seen: "start /usr/bin/python3: Too many open files"
    def test_of_descriptors_fails_it_in_one_sentence(self):
        self.assert_fails("start /usr/bin/python3: Too many open files",
                          self.app.run("--self-test", **limit(resource.RLIMIT_NOFILE, 4)))

    # fault: the user may make no process more
    # seen: "start /usr/bin/python3: Resource temporarily unavailable"
    def test_of_processes_fails_it_in_one_sentence(self):
        self.assert_fails("start /usr/bin/python3: Resource temporarily unavailable",
                          self.app.run("--self-test", **limit(resource.RLIMIT_NPROC, 0), **ORDINARY_USER))

    # fault: there is no memory for the image
    # seen: "Cannot allocate memory"
    @unittest.skipIf(SANITIZED, "a sanitizer needs more memory than that for itself")
    def test_of_memory_fails_it_in_one_sentence(self):
        self.app.manifest["binary"]["size"] = 200 << 20
        self.app.write_manifest()
        os.truncate(self.app.image, 200 << 20)
        self.assert_fails(b"read " + self.app.image + b": Cannot allocate memory",
                          self.app.run("--self-test", **limit(resource.RLIMIT_AS, 128 << 20)))

    # fault: the user's files may not grow, and standard output is a file
    # seen: "write standard output: File too large"
    def test_of_file_size_fails_it_in_one_sentence(self):
        with open(self.folder + b"/report", "wb") as report:
            self.assert_fails("write standard output: File too large",
                              self.app.run("--self-test", stdout=report, **limit(resource.RLIMIT_FSIZE, 0)))


@unittest.skipUnless(sys.platform == "linux", "strace is for Linux")
class Calls(HeadlessTest):
    def run_with(self, injected: str, *paths: bytes) -> subprocess.CompletedProcess:
        """Runs with one fault in the system calls, of all calls or of those on these paths."""
        # The leak checker cannot work under a tracer; it concerns builds with sanitizers only.
        chosen = [word for path in paths for word in (b"-P", path)]
        return self.app.run("--quiet=path-resolution", "-o", "/dev/null", *chosen, "-e", "inject=" + injected,
                            "-E", "ASAN_OPTIONS=detect_leaks=0", self.app.executable, "--self-test",
                            program=STRACE)

    # fault: signals interrupt every second call that reads a file, waits for the tool or writes the report
    def test_that_are_interrupted_are_made_again(self):
        for injected, paths in (("openat,read:error=EINTR:when=1+2", (self.app.manifest_file, self.app.image)),
                                ("wait4,write:error=EINTR:when=1+2", ())):
            with self.subTest(injected):
                self.assert_passes(self.run_with(injected, *paths), self.app.report())

    # fault: the disk fails while the release is read
    # seen: "read …: Input/output error"
    def test_that_fail_on_the_release_name_the_file(self):
        for path in (self.app.manifest_file, self.app.image):
            with self.subTest(path):
                self.assert_fails(b"read " + path + b": Input/output error",
                                  self.run_with("read:error=EIO", path))

    # fault: the program cannot find out its arguments, or where it stands
    # seen: "The flasher cannot run: open /proc/self/cmdline: Too many open files", "self-test failed: read
    #     /proc/self/exe: Permission denied"
    def test_that_fail_before_the_release_is_known_are_named_too(self):
        for injected, path, sentence in (
                ("openat:error=EMFILE", b"/proc/self/cmdline",
                 b"The flasher cannot run: open /proc/self/cmdline: Too many open files\n"),
                ("readlink:error=EACCES", b"/proc/self/exe",
                 b"self-test failed: read /proc/self/exe: Permission denied\n")):
            with self.subTest(path):
                result = self.run_with(injected, path)
                self.assertEqual((result.stdout, result.stderr, result.returncode), (b"", sentence, 1))


class Tool(HeadlessTest):
    # fault: the tool leaves a process behind that keeps the pipe open
    def test_that_leaves_a_process_behind_is_read_to_the_end_of_the_pipe(self):
        self.app.set_tool("import array, fcntl, os, signal, termios\nprint('4.7.0', flush=True)\n"
                          "if os.fork(): os._exit(0)\nsignal.alarm(60)\nunread = array.array('i', [1])\n"
                          "while unread[0]: fcntl.ioctl(1, termios.FIONREAD, unread)\nprint('late')")
        self.assert_passes(self.app.run("--self-test"), self.app.report(esptool="late"))


if __name__ == "__main__":
    if STRACE is None and sys.platform == "linux":
        print("this program is missing: strace", file=sys.stderr)
        sys.exit(77)
    unittest.main()
