"""The figures as a page: the goals first, then every call, then the single figures."""

import platform
import statistics
import subprocess

SYMBOLS = {True: "met", False: "missed", None: "not measured"}


def ratios(readings, yardstick):
    return [one["cpu_us"] / other["cpu_us"] for one, other in zip(readings, yardstick)]


def ranged(values, digits=2):
    return f"{statistics.median(values):.{digits}f} ({min(values):.{digits}f}–{max(values):.{digits}f})"


def table(head, rows):
    lines = [head, ["---"] * len(head), *rows]
    return "\n".join("| " + " | ".join(str(cell) for cell in line) + " |" for line in lines)


def goal(figure, measured, limit, value):
    return [figure, measured, limit, SYMBOLS[value]]


def against(figures, scheme, count, peer, limit):
    cell = figures["calls"][scheme, count]
    name = f"CPU a call, {scheme}, {count} in flight, against {peer}"
    if peer not in cell:
        return goal(name, "", f"≤ {limit:.2f}", None)
    values = ratios(cell["kivo"], cell[peer])
    return goal(name, ranged(values), f"≤ {limit:.2f}", statistics.median(values) <= limit)


def launch_cpu(figures, name):
    return statistics.median(reading["cpu_us"] for reading in figures["launch"][name]) / 1000


def single_goals(figures):
    instructions = figures["instructions"]["kivo"] / figures["instructions"]["queued-curl"]
    yield goal("instructions a call, http, 16 in flight, against queued-curl", f"{instructions:.2f}", "≤ 1.20",
               instructions <= 1.20)
    caller = figures["caller"]
    asleep = caller["asleep_us"] / caller["signal_us"]
    yield goal("operation on the caller's thread, pool asleep, against a signal", f"{asleep:.2f}", "≤ 1.50",
               asleep <= 1.5)
    yield goal("operation, pool awake", f"{caller['awake_us']:.2f} µs", "≤ 1 µs", caller["awake_us"] <= 1)
    yield goal("allocations on the caller's thread", f"{caller['allocations']:.0f}", "≤ 6", caller["allocations"] <= 6)
    for name in ("kivo, first launch", "kivo, second launch"):
        launch = launch_cpu(figures, name) / launch_cpu(figures, "bare-curl")
        yield goal(f"CPU from main() to the first reply, {name}, against bare-curl", f"{launch:.2f}", "≤ 1.30",
                   launch <= 1.3)
    handshakes = figures["handshakes"]
    yield goal("handshakes for initSdk and setUser, h2", ranged(handshakes, 0), "1", max(handshakes) == 1)
    yield goal("stripped shared library", f"{figures['size']:,} bytes", "≤ 350,000", figures["size"] <= 350_000)


def rest_goals(rest):
    if rest is None:
        return [goal("at rest", "", "", None)]
    more = (rest["kb"] - rest["curl_kb"]) / 1024
    return [goal("own threads at rest", rest["threads"], "≤ 3", rest["threads"] <= 3),
            goal("wake-ups in 60 s at rest", rest["wakes"], "0", rest["wakes"] == 0),
            goal("resident memory at rest over bare-curl", f"{more:+.1f} MB of {rest['kb'] / 1024:.1f}", "≤ +2 MB",
                 more <= 2)]


def goals(figures):
    rows = [against(figures, "https", count, "queued-curl", limit)
            for count, limit in ((1, 1.45), (16, 1.40), (256, 1.35))]
    rows += [against(figures, "https", 16, "soup", 0.50), against(figures, "https", 16, "qt", 0.45)]
    return table(["figure", "measured", "goal", ""], [*rows, *single_goals(figures), *rest_goals(figures["rest"])])


def calls(figures):
    rows = []
    for (scheme, count), cell in figures["calls"].items():
        for name, readings in cell.items():
            middle = {key: statistics.median(reading[key] for reading in readings) for key in readings[0]}
            rows.append([scheme, count, name, ranged(ratios(readings, cell["queued-curl"])),
                         f"{middle['cpu_us']:.1f}", f"{1e6 / middle['wall_us']:,.0f}", f"{middle['switches']:.1f}",
                         f"{middle['peak_kb'] / 1024:.1f}", f"{middle['threads']:.0f}"])
    return table(["server", "in flight", "candidate", "CPU against queued-curl", "CPU µs a call", "calls/s",
                  "switches a call", "peak MB", "threads"], rows)


def singles(figures):
    caller = figures["caller"]
    rows = [["a bare signal to a sleeping thread", f"{caller['signal_us']:.2f} µs"],
            ["an operation, pool asleep", f"{caller['asleep_us']:.2f} µs"],
            ["an operation, pool awake", f"{caller['awake_us']:.2f} µs"],
            ["memory of one of 10,000 pending operations", f"{figures['pending']:,} bytes"]]
    rows += [[f"instructions a call, {name}", f"{count:,.0f}"] for name, count in figures["instructions"].items()]
    rows += [[f"main() to the first reply, {name}",
              f"{statistics.median(one['wall_us'] for one in readings) / 1000:.1f} ms, CPU {launch_cpu(figures, name):.1f} ms"]
             for name, readings in figures["launch"].items()]
    return table(["figure", "median"], rows)


def machine():
    with open("/proc/cpuinfo") as information:
        model = next(line.split(":")[1].strip() for line in information if line.startswith("model name"))
    curl = subprocess.run(["curl-config", "--version"], capture_output=True, text=True).stdout.strip()
    return f"{model}, Linux {platform.release().split('-')[0]}, {curl}"


def markdown(figures):
    return f"""# What a call costs

Measured by `scripts/bench`: {figures['rounds']} rounds, the candidates in turn within each; server and client on one core.
Each ratio is of two readings of one round; median and range. {machine()}.

`queued-curl` is the yardstick: libcurl on one thread, to which another hands each call. Kivo's calls are
`updateDeviceToken`, its lines go to a file; the peers send the same request and decode the same reply. At rest begins
when the time limit of the last call has passed.

## Goals

{goals(figures)}

## Calls

{calls(figures)}

## Single figures

{singles(figures)}
"""
