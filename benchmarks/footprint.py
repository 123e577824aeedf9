"""What Kivo occupies: on disk, in memory, and of the machine's attention while nothing happens."""

import json
import pathlib
import subprocess
import time

from programs import PATIENCE


def size(programs):
    """Bytes of the stripped shared library."""
    stripped = programs.state / "stripped.so"
    subprocess.run(["strip", "--strip-unneeded", "-o", stripped, programs.library], check=True)
    return stripped.stat().st_size


def pending(programs):
    """Bytes that each of 10,000 operations occupies while the server is silent."""
    with subprocess.Popen(
        [programs.path("pending")],
        stdin=subprocess.PIPE,
        stderr=subprocess.PIPE,
        stdout=subprocess.DEVNULL,
        text=True,
        env=programs.environment(),
    ) as process:
        process.stderr.readline()
        programs.server.halt()
        try:
            return json.loads(process.communicate("\n", timeout=PATIENCE)[1])["bytes"]
        finally:
            programs.server.proceed()


class Rest:
    """A program that has made its calls and now rests."""

    def __init__(self, programs, command):
        self.process = subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stderr=subprocess.PIPE,
            stdout=subprocess.DEVNULL,
            text=True,
            env=programs.environment(),
        )
        json.loads(self.process.stderr.readline())
        self.folder = pathlib.Path(f"/proc/{self.process.pid}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()

    def tasks(self):
        return sorted((self.folder / "task").iterdir())

    def switches(self):
        status = "".join((task / "status").read_text() for task in self.tasks())
        return sum(int(line.split()[1]) for line in status.splitlines() if "ctxt_switches" in line)

    def anonymous_kb(self):
        """Memory of its own; pages of files, which processes share, are left out."""
        rollup = (self.folder / "smaps_rollup").read_text()
        return next(
            int(line.split()[1]) for line in rollup.splitlines() if line.startswith("Anonymous:")
        )


def rest(programs, plan):
    """Kivo beside bare curl, so that both minutes are one."""
    print(f"at rest, {plan.silent_seconds + plan.rest_seconds} s", flush=True)
    curl = [programs.path("launch-curl"), *programs.server.address("h2"), "1", "1"]
    with Rest(programs, curl) as bare, Rest(
        programs, [programs.path("launch-kivo"), "both"]
    ) as kivo:
        time.sleep(plan.silent_seconds)
        before = kivo.switches()
        time.sleep(plan.rest_seconds)
        return {
            "wakes": kivo.switches() - before,
            "threads": len(kivo.tasks()) - 1,
            "kb": kivo.anonymous_kb(),
            "curl_kb": bare.anonymous_kb(),
        }
