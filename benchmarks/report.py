"""The figures as a page: one picture, the goals, then every table and how it was measured."""

import platform
import statistics
import subprocess

from delay import ROUND_TRIP_MS
from goals import goals
from tables import ranged, table

QUICK = "**A quick run, to try the tool: none of these figures means anything.**\n\n"

INTRODUCTION = """\
`queued-curl` is the yardstick: libcurl on a thread of its own, to which another thread hands each
call. A library that never blocks its host needs at least that. `bare-curl` is libcurl on one thread
with its requests prepared beforehand. Kivo's calls are `updateDeviceToken` with nothing switched
off, and its lines go to a file; the others send the same request, and the peers (libsoup, Qt and
Boost.Beast) decode the same reply."""

METHOD = """\
The server is nginx on loopback. It speaks TLS 1.3 and nothing older, which the run checks
before it measures. Server and client share one core. The candidates take turns within each round.
A ratio is of two readings of the same round; tables show the median and, in brackets, the lowest
and the highest.

- **CPU, switches:** of all threads of the process, after 300 calls that open the connections.
- **System calls:** counted by perf over https. The count of a short run is taken from that of a
  long one, so that start and end cancel out.
- **Instructions:** counted by valgrind over http with 16 calls in flight, in the same way.
- **Slow line:** a proxy holds every byte for 50 ms in each direction, and the first bytes for the
  round trip of TCP's handshake too. Each reading is a first launch with an empty home directory.
- **Launches:** from `main()` to the first reply over HTTP/2, with the system's trust directory.
- **Busy disk:** four threads of another process write and flush 4 MiB at a time, without a pause.
- **At rest:** from 35 s after the last call, when no time limit is running any more, for a minute.
  Anonymous memory leaves out the pages of files, which processes share."""


def calls(figures):
    rows = []
    for (scheme, count), cell in figures["calls"].items():
        for name, readings in cell.items():
            ratios = [
                one["cpu_us"] / other["cpu_us"] for one, other in zip(readings, cell["queued-curl"])
            ]
            rows.append([scheme, count, name, ranged(ratios), *call_columns(readings)])
    head = ["server", "in flight", "candidate", "CPU against queued-curl", "CPU µs a call"]
    return table([*head, "calls/s", "switches a call", "peak MB", "threads"], rows)


def call_columns(readings):
    middle = {key: statistics.median(one[key] for one in readings) for key in readings[0]}
    return [
        f"{middle['cpu_us']:.1f}",
        f"{1e6 / middle['wall_us']:,.0f}",
        f"{middle['switches']:.1f}",
        f"{middle['peak_kb'] / 1024:.1f}",
        f"{middle['threads']:.0f}",
    ]


def kernel(figures):
    rows = []
    for name in figures["calls"]["https", 1]:
        row = [name]
        for count in (1, 256):
            counted = figures["system_calls"][count][name]
            switches = [one["switches"] for one in figures["calls"]["https", count][name]]
            row += [ranged(counted, 1) if counted else "not measured", ranged(switches, 1)]
        rows.append(row)
    head = ["candidate", "system calls, 1 in flight", "switches, 1 in flight"]
    return table([*head, "system calls, 256 in flight", "switches, 256 in flight"], rows)


SERVERS = {"slow-h2": "h2, slow line", "slow-https": "HTTP/1.1, slow line", "h2": "h2"}
SCENES = {
    "first": "first reply of a launch",
    "both": "initialise with setUser, both replies",
    "burst": "5 calls at once, one connection open",
    "silence": "5 calls at once, connections closed",
}


def waits(figures):
    def row(name, cell):
        more = [one - other for one, other in zip(cell["kivo"], cell["bare-curl"])]
        return [name, ranged(cell["kivo"], 0), ranged(cell["bare-curl"], 0), ranged(more, 0)]

    rows = [
        row(f"{SCENES[scene]}, {SERVERS[server]}", cell)
        for (server, scene), cell in figures["round_trips"].items()
    ]
    rows += [
        row(f"first reply of a launch, {SERVERS[server]}, busy disk", cell)
        for server, cell in figures["busy_disk"].items()
    ]
    return table(["milliseconds until", "kivo", "bare-curl", "more than bare-curl"], rows)


def launches(figures):
    rows = [
        [
            name,
            ranged([one["wall_us"] / 1000 for one in readings], 1),
            ranged([one["cpu_us"] / 1000 for one in readings], 1),
        ]
        for name, readings in figures["launches"].items()
    ]
    return table(["from main() to the first reply", "ms", "CPU ms"], rows)


def singles(figures):
    caller, rest = figures["caller"], figures["rest"]
    rows = [
        ["a bare signal to a sleeping thread", f"{caller['signal_us']:.2f} µs"],
        ["an operation, Kivo asleep", f"{caller['asleep_us']:.2f} µs"],
        ["an operation, Kivo awake", f"{caller['awake_us']:.2f} µs"],
        ["memory of one of 10,000 pending operations", f"{figures['pending']:,} bytes"],
        ["anonymous memory at rest, kivo", f"{rest['kb'] / 1024:.1f} MB"],
        ["anonymous memory at rest, bare-curl", f"{rest['curl_kb'] / 1024:.1f} MB"],
    ]
    rows += [
        [f"instructions a call, {name}", f"{count:,.0f}"]
        for name, count in figures["instructions"].items()
    ]
    return table(["figure", "measured"], rows)


def machine():
    with open("/proc/cpuinfo") as information:
        model = next(
            line.split(":")[1].strip() for line in information if line.startswith("model name")
        )
    curl = subprocess.run(["curl-config", "--version"], capture_output=True, text=True)
    return f"{model}, Linux {platform.release().split('-')[0]}, {curl.stdout.strip()}"


def noise(figures):
    """How far the yardstick strays from its own median, in the typical and in the worst cell."""
    strays = []
    for cell in figures["calls"].values():
        costs = [one["cpu_us"] for one in cell["queued-curl"]]
        strays.append((max(costs) - min(costs)) / statistics.median(costs))
    typical, worst = (f"{100 * value:.0f} %" for value in (statistics.median(strays), max(strays)))
    return (
        f"How noisy it was: the lowest and the highest CPU a call of `queued-curl` lie {typical}\n"
        f"of its median apart in the typical row and {worst} in the worst. The load average was\n"
        f"{figures['load']:.2f} when the run began."
    )


def markdown(figures):
    plan = figures["plan"]
    return f"""# What a call costs

![CPU a call beside every peer, and from 1 to 256 calls in flight](results.svg)

{QUICK if plan.is_quick else ""}{INTRODUCTION}

Measured by `scripts/bench` on {machine()}. Rounds: {plan.rounds}; calls a round: {plan.calls:,}.

## Goals

{goals(figures)}

[profile.md](profile.md) tells what is behind those that are missed.

## Calls

{calls(figures)}

## System calls and switches a call, https

{kernel(figures)}

## Waiting for replies

One round trip over the slow line takes {ROUND_TRIP_MS:.0f} ms. A new connection takes one for
TCP and one for TLS before the first request can leave. The five calls go to a host that has
answered two before: its connection is still open, or was closed during a second of silence.
`bare-curl` has its calls wait for a connection that they may share (`CURLOPT_PIPEWAIT`).

{waits(figures)}

## Launches

{launches(figures)}

## Single figures

{singles(figures)}

## How it is measured

{METHOD}

{noise(figures)}
"""
