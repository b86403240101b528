"""The windowed program in a system that refuses it something: a full disk, a closed pipe, calls that fail."""

from __future__ import annotations

import glob
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest

from test_window_self_test import PASSED, REPORT, WindowedProcess

STRACE = shutil.which("strace")
NOBODY = 65534
# Fills a /tmp of its own, runs the command in it and lists what is left there.
IN_A_FULL_TMP = ('mount -t tmpfs -o size=16k tmpfs /tmp || exit 77; cat /dev/zero >/tmp/full 2>/dev/null\n'
                 '"$0" "$@"; status=$?; ls -A /tmp >"$LISTING"; exit $status')


def limit(kind: int, value: int) -> dict:
    """Options of a run in which the program, but not this one, has the limit."""
    return {"preexec_fn": lambda: resource.setrlimit(kind, (value, value))}


class ReportFile(WindowedProcess):
    def setUp(self) -> None:
        # Not below /tmp, which one of the tests hides.
        tempfile.tempdir, before = "/var/tmp", tempfile.tempdir
        self.addCleanup(setattr, tempfile, "tempdir", before)
        super().setUp()

    # fault: the disk that takes the report file of the window self-test is full
    def test_on_a_full_disk_is_left_out(self) -> None:
        listing = self.folder / "listing"
        self.environment["LISTING"] = str(listing)
        done = self.run_program("unshare", "-m", "sh", "-c", IN_A_FULL_TMP)
        if done.returncode == 77 or done.stderr.startswith("unshare"):
            self.skipTest(done.stderr)
        self.assert_passed(done)
        names = listing.read_text().split()
        self.assertIn("full", names)
        self.assertEqual([name for name in names if name.startswith("qelmo")], [])

    # fault: another user has put a link where the report file of the window self-test goes
    @unittest.skipUnless(os.geteuid() == 0, "needs a link of another user")
    def test_replaces_another_users_link_and_leaves_its_target_alone(self) -> None:
        victim = self.folder / "victim"
        victim.write_text("precious")
        os.symlink(victim, REPORT)
        os.lchown(REPORT, NOBODY, NOBODY)
        self.assert_passed(self.run_program())
        self.assertEqual((victim.read_text(), os.path.islink(REPORT)), ("precious", False))
        self.assertEqual(pathlib.Path(REPORT).read_text(), PASSED)

    # fault: the system protects another user's report file from being replaced
    @unittest.skipUnless(os.geteuid() == 0, "needs a file of another user")
    def test_that_the_system_protects_stays_as_it_is(self) -> None:
        pathlib.Path(REPORT).write_text("theirs")
        os.chmod(self.folder, 0o755)
        self.assert_passed(self.run_program(user=NOBODY, group=NOBODY, extra_groups=[]))
        self.assertEqual(pathlib.Path(REPORT).read_text(), "theirs")

    # fault: the user's files may not grow
    def test_that_may_not_grow_is_left_out(self) -> None:
        self.assert_passed(self.run_program(**limit(resource.RLIMIT_FSIZE, 0)))
        self.assertEqual(glob.glob(REPORT + "*"), [])


class Limits(WindowedProcess):
    # fault: the user may make no thread, which the toolkit cannot do without
    # seen: "The flasher cannot run: start the window: Resource temporarily unavailable"
    def test_of_threads_is_named_in_one_sentence(self) -> None:
        os.chmod(self.folder, 0o755)
        user = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}
        done = self.run_program(**limit(resource.RLIMIT_NPROC, 0), **user)
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (1, "", "The flasher cannot run: start the window: Resource temporarily unavailable\n"))

    # fault: there are too few descriptors for the toolkit
    # seen: "The flasher cannot run: start the window: Too many open files"
    def test_of_descriptors_is_named_in_one_sentence(self) -> None:
        for number in range(4, 13):
            with self.subTest(number):
                done = self.run_program(**limit(resource.RLIMIT_NOFILE, number))
                self.assertEqual((done.returncode, done.stdout, done.stderr),
                                 (1, "", "The flasher cannot run: start the window: Too many open files\n"))


class StandardOutput(WindowedProcess):
    # fault: nobody reads the window self-test's standard output any more
    # seen: "The report cannot be printed: write standard output: Broken pipe"
    def test_that_nobody_reads_leaves_the_status_of_the_verdict(self) -> None:
        reading, writing = os.pipe()
        os.close(reading)
        done = self.run_program(stdout=writing)
        os.close(writing)
        self.assertEqual((done.returncode, done.stderr),
                         (0, "The report cannot be printed: write standard output: Broken pipe\n"))
        self.assertEqual(pathlib.Path(REPORT).read_text(), PASSED)


class Calls(WindowedProcess):
    def run_with(self, path: str, injected: str) -> subprocess.CompletedProcess:
        # The leak checker cannot work under a tracer; it concerns builds with sanitizers only.
        self.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        return self.run_program(STRACE, "--quiet=path-resolution", "-o", "/dev/null", "-P", path, "-e",
                                "inject=" + injected)

    # fault: no descriptor is left while the window starts
    # seen: "The flasher cannot run: open /proc/self/cmdline: Too many open files"
    def test_that_fail_inside_the_event_loop_end_the_program_in_one_sentence(self) -> None:
        done = self.run_with("/proc/self/cmdline", "openat:error=EMFILE:when=2")
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (1, "", "The flasher cannot run: open /proc/self/cmdline: Too many open files\n"))
        self.assertFalse(os.path.exists(REPORT))

    # fault: the program cannot find out where it stands, at any moment of its start and of its self-test
    # seen: "The window cannot be opened: libQelmoWindow.so: cannot open …"
    def test_that_find_the_bundle_may_fail_at_any_moment(self) -> None:
        sentence = (1, "", "The flasher cannot run: read /proc/self/exe: Permission denied\n")
        seen = []
        for number in range(1, 9):
            with self.subTest(number):
                done = self.run_with("/proc/self/exe", f"readlink:error=EACCES:when={number}")
                seen.append((done.returncode, done.stdout, done.stderr))
                loader = done.stderr.startswith("The window cannot be opened: libQelmoWindow.so: cannot open ")
                self.assertTrue(seen[-1] in (sentence, (0, PASSED, "")) or done.returncode == 1 and
                                (loader or done.stdout.startswith("window_self_test=FAILED\n")), done)
        self.assertIn(sentence, seen)
        self.assertNotEqual(seen, [sentence] * len(seen))

    # fault: /dev cannot be read while the window starts
    def test_that_list_the_ports_do_not_concern_the_verdict(self) -> None:
        self.assert_passed(self.run_with("/dev", "openat:error=EACCES"))


if __name__ == "__main__":
    if STRACE is None:
        print("this program is missing: strace", file=sys.stderr)
        sys.exit(77)
    unittest.main()
