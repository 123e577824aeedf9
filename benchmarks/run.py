"""Measures the candidates against one server, round by round, and writes what they cost."""

import argparse
import os
import pathlib
import tempfile
from dataclasses import dataclass

import calls
import footprint
import launches
import picture
import report
from delay import SlowLine
from programs import Programs
from server import Server


@dataclass(frozen=True)
class Plan:
    """How much is measured; `disk` is a folder on the disk that launches write to."""

    disk: str
    is_quick: bool = False
    rounds: int = 7
    calls: int = 3000
    silent_seconds: int = 35  # Until the time limit of the last call has passed.
    rest_seconds: int = 60

    @staticmethod
    def quick(disk):
        return Plan(disk, True, rounds=1, calls=500, silent_seconds=1, rest_seconds=2)


def measure(programs, plan):
    figures = {"plan": plan, "load": os.getloadavg()[0]}
    figures["calls"] = calls.calls(programs, plan)
    print("system calls and instructions", flush=True)
    figures["system_calls"] = calls.system_calls(programs, plan)
    figures["instructions"] = calls.instructions(programs, plan)
    print("launches and round trips", flush=True)
    figures["caller"] = calls.caller(programs, plan)
    figures["launches"] = launches.launches(programs, plan)
    figures["handshakes"] = launches.handshakes(programs, plan)
    with SlowLine(programs.server.slow_ports()):
        figures["round_trips"] = launches.round_trips(programs, plan)
        figures["busy_disk"] = launches.busy_disk(programs, plan)
    figures["size"] = footprint.size(programs)
    figures["pending"] = footprint.pending(programs)
    figures["rest"] = footprint.rest(programs, plan)
    return figures


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", required=True)
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument(
        "--quick",
        action="store_true",
        help="one round of few calls, to try the tool; the page goes to the build directory",
    )
    options = parser.parse_args()
    with (
        tempfile.TemporaryDirectory(prefix="kivo-bench-") as state,
        tempfile.TemporaryDirectory(prefix="kivo-bench-", dir=options.build) as disk,
    ):
        os.chmod(state, 0o755)
        plan = Plan.quick(disk) if options.quick else Plan(disk)
        with Server(state, options.port, core=(os.cpu_count() or 1) - 1) as server:
            figures = measure(Programs(options.build, server, pathlib.Path(state)), plan)
    text = report.markdown(figures)
    print(f"\n{text}")
    folder = pathlib.Path(options.build) if options.quick else pathlib.Path(__file__).parent
    (folder / "results.md").write_text(text)
    picture.draw(figures["calls"], folder / "results.svg")


if __name__ == "__main__":
    main()
