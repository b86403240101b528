"""A child process that runs to its end, with limits and as another user if need be."""

from __future__ import annotations

import os
import resource
import subprocess

from support.waiting import LIMIT_SECONDS

PYTHON = "/usr/bin/python3"
CANNOT_RUN_HERE = 77
NOBODY = 65534
# Options of a run by a user whom permissions and limits concern.
ORDINARY_USER = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}


def limit(kind: int, value: int) -> dict:
    """Options of a run in which the child, but not this process, has the limit."""
    return {"preexec_fn": lambda: resource.setrlimit(kind, (value, value))}


def run(*command: object, **options) -> subprocess.CompletedProcess:
    """Its output is text; bytes that are none can be compared with names of files."""
    given = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True,
             "errors": "surrogateescape", "timeout": LIMIT_SECONDS}
    return subprocess.run(list(map(str, command)), check=False, **{**given, **options})
