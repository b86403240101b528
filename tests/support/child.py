"""A child process that runs to its end, if necessary with limits and as another user."""

from __future__ import annotations

import os
import resource
import subprocess

from support.waiting import LIMIT_SECONDS

PYTHON = "/usr/bin/python3"
CANNOT_RUN_HERE = 77
NOBODY = 65534
# Options for running as a user to whom permissions and limits apply.
ORDINARY_USER = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}


def limit(kind: int, value: int) -> dict:
    """Options for a run in which the limit applies to the child but not to this process."""
    return {"preexec_fn": lambda: resource.setrlimit(kind, (value, value))}


def run(*command: object, **options) -> subprocess.CompletedProcess:
    """Runs the command. Its output is text, in which invalid bytes are decoded as in file names."""
    given = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True,
             "errors": "surrogateescape", "timeout": LIMIT_SECONDS}
    return subprocess.run(list(map(str, command)), check=False, **{**given, **options})
