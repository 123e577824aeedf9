"""Runs the candidates against one server, round by round, and writes what they cost as results.md."""

import argparse
import json
import os
import pathlib
import statistics
import subprocess
import tempfile
import time

import report
from server import TRUST_DIRECTORY, Server

SCHEMES = ["http", "https", "h2"]
IN_FLIGHT = [1, 16, 256]
CANDIDATES = ["kivo", "queued-curl", "bare-curl", "soup", "qt", "beast"]
SILENT_SECONDS, REST_SECONDS = 35, 60
PATIENCE = 120


class Bench:
    def __init__(self, options, server, state):
        self.programs = pathlib.Path(options.build) / "benchmarks"
        self.library = pathlib.Path(options.build) / "kivo" / "libkivo.so"
        self.quick, self.server, self.state = options.quick, server, state
        self.rounds = 3 if options.quick else 7
        self.core = str(server.core)

    def environment(self, home, trust=True):
        (self.state / home).mkdir(exist_ok=True)
        variables = {"PATH": os.environ["PATH"], "HOME": str(self.state / home)}
        return variables | ({"SSL_CERT_FILE": str(self.server.ca)} if trust else {})

    def program(self, name):
        return str(self.programs / f"bench-{name}")

    def run(self, command, home="home", trust=True):
        """Runs a program whose lines go to a file; its last line on standard error is the result."""
        with open(self.state / "lines", "w") as lines:
            done = subprocess.run(command, stdout=lines, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True,
                                  timeout=PATIENCE, env=self.environment(home, trust))
        if done.returncode != 0:
            raise SystemExit(f"{' '.join(command)} failed:\n{done.stderr}")
        return json.loads(done.stderr.splitlines()[-1])

    def load(self, candidate, scheme, calls, in_flight):
        name = f"kivo-{scheme}" if candidate == "kivo" else candidate
        return [self.program(name), scheme, str(self.server.ports[scheme]), str(self.server.ca), str(calls),
                str(in_flight)]

    def calls(self):
        """Cost of a call: {(scheme, in flight): {candidate: [one reading a round]}}."""
        calls = 1000 if self.quick else 3000
        present = [name for name in CANDIDATES if name == "kivo" or pathlib.Path(self.program(name)).exists()]
        cells = {(scheme, count): {name: [] for name in present if (name, scheme) != ("beast", "h2")}
                 for scheme in SCHEMES for count in IN_FLIGHT}
        for turn in range(self.rounds):
            print(f"round {turn + 1} of {self.rounds}", flush=True)
            for (scheme, count), readings in cells.items():
                for name in readings:
                    command = ["taskset", "--cpu-list", self.core, *self.load(name, scheme, calls, count)]
                    readings[name].append(self.run(command))
        return cells

    def instructions(self):
        """Instructions a call over plain http: the difference of two counts."""
        def count(candidate, calls):
            command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={self.state}/callgrind.out",
                       *self.load(candidate, "http", calls, 16)]
            with open(self.state / "lines", "w") as lines:
                done = subprocess.run(command, stdout=lines, stderr=subprocess.PIPE, text=True, check=True,
                                      timeout=PATIENCE, env=self.environment("home"))
            return next(int(line.split()[-1]) for line in done.stderr.splitlines() if "Collected" in line)

        return {name: (count(name, 1500) - count(name, 500)) / 1000 for name in ("kivo", "queued-curl")}

    def caller(self):
        return medians([self.run([self.program("caller")]) for _ in range(self.rounds)])

    def launch(self):
        """From main() to the first reply, with the system's trust directory and our authority in it."""
        user = [] if os.geteuid() == 0 else ["--map-root-user"]
        bind = f'mount --bind "{self.server.trust_directory()}" {TRUST_DIRECTORY} && exec "$@"'
        with_trust = ["unshare", *user, "--mount", "sh", "-c", bind, "sh"]
        kivo = [*with_trust, self.program("launch-kivo"), "init"]
        port = str(self.server.ports["h2"])
        curl = [*with_trust, self.program("launch-curl"), "h2", port, TRUST_DIRECTORY, "1", "1"]
        readings = {"kivo, first launch": [], "kivo, second launch": [], "bare-curl": []}
        for turn in range(2 * self.rounds):
            readings["kivo, first launch"].append(self.run(kivo, f"launch-{turn}", trust=False))
            readings["kivo, second launch"].append(self.run(kivo, f"launch-{turn}", trust=False))
            readings["bare-curl"].append(self.run(curl, trust=False))
        return readings

    def handshakes(self):
        counts = []
        for turn in range(self.rounds):
            before = self.server.accepted()
            self.run([self.program("launch-kivo"), "both"], f"handshakes-{turn}")
            counts.append(self.server.accepted() - before)
        return counts

    def size(self):
        subprocess.run(["strip", "--strip-unneeded", "-o", self.state / "stripped.so", self.library], check=True)
        return (self.state / "stripped.so").stat().st_size

    def pending(self):
        """Bytes that each of 10,000 operations occupies while the server is silent."""
        with subprocess.Popen([self.program("pending")], stdin=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              stdout=subprocess.DEVNULL, env=self.environment("home")) as process:
            process.stderr.readline()
            self.server.halt()
            reading = process.communicate("\n", timeout=PATIENCE)[1]
            self.server.proceed()
        return json.loads(reading)["bytes"]


class Rest:
    """A program that has made its calls and now rests."""

    def __init__(self, bench, command):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                        stdout=subprocess.DEVNULL, env=bench.environment("rest"))
        json.loads(self.process.stderr.readline())
        self.begin = time.monotonic()

    def tasks(self):
        return sorted(pathlib.Path(f"/proc/{self.process.pid}/task").iterdir())

    def switches(self):
        status = "".join((task / "status").read_text() for task in self.tasks())
        return sum(int(line.split()[1]) for line in status.splitlines() if "ctxt_switches" in line)

    def resident(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmRSS"))

    def reading(self):
        """Waits until nothing is due any more, then counts for a minute."""
        time.sleep(max(0, self.begin + SILENT_SECONDS - time.monotonic()))
        before = self.switches()
        time.sleep(REST_SECONDS)
        return {"wakes": self.switches() - before, "threads": len(self.tasks()) - 1, "kb": self.resident()}

    def end(self):
        self.process.kill()
        self.process.wait()


def medians(readings):
    return {key: statistics.median(reading[key] for reading in readings) for key in readings[0]}


def rest(bench):
    """Beside each other, so that both minutes are one."""
    port = str(bench.server.ports["h2"])
    curl = Rest(bench, [bench.program("launch-curl"), "h2", port, str(bench.server.ca), "1", "1"])
    kivo = Rest(bench, [bench.program("launch-kivo"), "both"])
    try:
        print(f"at rest, {SILENT_SECONDS + REST_SECONDS} s", flush=True)
        return kivo.reading() | {"curl_kb": curl.resident()}
    finally:
        kivo.end()
        curl.end()


def measure_all(bench):
    figures = {"calls": bench.calls(), "rounds": bench.rounds, "quick": bench.quick}
    print("single figures", flush=True)
    figures |= {"caller": bench.caller(), "launch": bench.launch(), "handshakes": bench.handshakes(),
                "size": bench.size(), "pending": bench.pending(), "instructions": bench.instructions()}
    return figures | {"rest": None if bench.quick else rest(bench)}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", required=True)
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--quick", action="store_true", help="fewer rounds and calls, nothing at rest; writes no file")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="kivo-bench-") as folder:
        os.chmod(folder, 0o755)
        state = pathlib.Path(folder)
        with Server(state, options.port, core=(os.cpu_count() or 1) - 1) as server:
            text = report.markdown(measure_all(Bench(options, server, state)))
    print(f"\n{text}")
    if not options.quick:
        (pathlib.Path(__file__).parent / "results.md").write_text(text)


if __name__ == "__main__":
    main()
