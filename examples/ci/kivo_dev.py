"""A pytest fixture that runs a program against kivo-dev.

Copy it beside your tests, and name it in conftest.py: pytest_plugins = ["kivo_dev"]
"""

import json
import subprocess

import pytest


class Run:
    """A program that has ended: its status, its output, and the requests that it sent."""

    def __init__(self, finished, report):
        self.status = finished.returncode
        self.output = finished.stdout
        self.totals = report["totals"]
        self.requests = report["requests"]

    def to(self, endpoint):
        """The requests to an endpoint such as "user/unset", oldest first."""
        return [each for each in self.requests if each["target"].endswith("/" + endpoint)]

    @property
    def violations(self):
        return [found["text"] for each in self.requests for found in each["violations"]]


@pytest.fixture
def kivo_dev(tmp_path):
    """A function: kivo_dev(program, *arguments, faults=[], options=[]) -> Run.

    Everything else goes to subprocess.run, such as input="…" or env={…}.
    """

    def run(*command, faults=(), options=(), **other):
        report = tmp_path / "report.json"
        rules = [word for rule in faults for word in ("--fault", rule)]
        kivo = ["kivo-dev", "run", "--quiet", "--fresh", "--show-secrets", "--report", report]
        other = {"stdout": subprocess.PIPE, "text": True, "timeout": 120, **other}
        finished = subprocess.run([*kivo, *rules, *options, "--", *command], **other)
        return Run(finished, json.loads(report.read_text()))

    return run
