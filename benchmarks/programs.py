"""The programs that are measured, and how one is run."""

import json
import os
import pathlib
import re
import subprocess
import tempfile

PATIENCE = 120
CANDIDATES = ["kivo", "queued-curl", "bare-curl", "soup", "qt", "beast"]


class Programs:
    def __init__(self, build, server, state):
        self.build, self.server, self.state = pathlib.Path(build), server, state
        self.library = self.build / "kivo" / "libkivo.so"
        self.pinned = ["taskset", "--cpu-list", str(server.core)]

    def path(self, name):
        return str(self.build / "benchmarks" / f"bench-{name}")

    def candidates(self, scheme):
        """The candidates that are built; Beast has no HTTP/2."""
        return [
            name
            for name in CANDIDATES
            if (name == "kivo" or pathlib.Path(self.path(name)).exists())
            and (name, scheme) != ("beast", "h2")
        ]

    def load(self, name, scheme, calls, in_flight):
        program = self.path(f"kivo-{scheme}" if name == "kivo" else name)
        return [program, *self.server.address(scheme), str(calls), str(in_flight)]

    def fresh_home(self, folder=None):
        return tempfile.mkdtemp(prefix="home-", dir=folder or self.state)

    def environment(self, home=None, trust=True):
        variables = {"PATH": os.environ["PATH"], "HOME": str(home or self.fresh_home())}
        return variables | ({"SSL_CERT_FILE": str(self.server.ca)} if trust else {})

    def output_of(self, command, home=None, trust=True):
        """Runs a program whose lines go to a file; what it says on standard error."""
        with open(self.state / "lines", "w") as lines:
            done = subprocess.run(
                command,
                stdout=lines,
                stderr=subprocess.PIPE,
                stdin=subprocess.DEVNULL,
                text=True,
                timeout=PATIENCE,
                env=self.environment(home, trust),
            )
        if done.returncode != 0:
            raise SystemExit(f"{' '.join(command)} failed:\n{done.stderr}")
        return done.stderr

    def reading(self, command, home=None, trust=True):
        """What a program reports of itself: its last line on standard error."""
        return json.loads(self.output_of(command, home, trust).splitlines()[-1])

    def system_calls(self, command):
        """How many system calls all threads of a program make; nothing where perf may not count."""
        counts = self.state / "perf"
        watch = ["perf", "stat", "-x", ",", "-o", str(counts), "-e", "raw_syscalls:sys_enter", "--"]
        if subprocess.run([*watch, "true"], capture_output=True).returncode != 0:
            return None
        self.output_of([*watch, *command])
        count = re.search(r"^(\d+),", counts.read_text(), re.MULTILINE)
        return int(count[1]) if count else None

    def instructions(self, command):
        watch = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={self.state}/callgrind"]
        said = self.output_of([*watch, *command])
        return int(re.search(r"Collected : (\d+)", said)[1])
