"""What Kivo is to reach, and whether it does."""

from statistics import median

from delay import ROUND_TRIP_MS
from tables import ranged, table


def goals(figures):
    rows = [
        *call_goals(figures),
        *launch_goals(figures),
        *wait_goals(figures),
        *caller_goals(figures["caller"]),
        *footprint_goals(figures),
    ]
    return table(["figure", "measured", "goal", ""], rows)


def goal(name, values, limit, unit="", digits=2):
    """A row: the median of the values is to be at most the limit; without values, not measured."""
    aim = f"≤ {limit:.{digits}f}{unit}"
    if not values:
        return [name, "", aim, "not measured"]
    return [name, ranged(values, digits) + unit, aim, verdict(median(values) <= limit)]


def verdict(is_met):
    return "met" if is_met else "missed"


def ratios(readings, yardstick, key="cpu_us"):
    return [one[key] / other[key] for one, other in zip(readings, yardstick)]


def call_goals(figures):
    def against(peer, count, limit):
        cell = figures["calls"]["https", count]
        values = ratios(cell["kivo"], cell.get(peer, []))
        return goal(f"CPU a call, https, {count} in flight, against {peer}", values, limit)

    for count, limit in ((1, 1.45), (16, 1.10), (256, 1.50)):
        yield against("queued-curl", count, limit)
    yield against("soup", 16, 0.45)
    yield against("qt", 16, 0.35)
    for count, limit in ((1, 13), (256, 6.5)):
        counted = figures["system_calls"][count]["kivo"]
        yield goal(f"system calls a call, https, {count} in flight", counted, limit, digits=1)
    instructions = figures["instructions"]
    ratio = instructions["kivo"] / instructions["queued-curl"]
    name = "instructions a call, http, 16 in flight, against queued-curl"
    yield [name, f"{ratio:.2f}", "≤ 1.55", verdict(ratio <= 1.55)]


def launch_goals(figures):
    launches = figures["launches"]
    for name, limit in (("kivo, second launch", 1.40), ("kivo, first launch on tmpfs", 1.60)):
        values = ratios(launches[name], launches["bare-curl"])
        yield goal(f"CPU to the first reply, {name}, against bare-curl", values, limit)


def wait_goals(figures):
    def more(cell):
        return [one - other for one, other in zip(cell["kivo"], cell["bare-curl"])] if cell else []

    first = "first reply, h2, 100 ms round trip"
    idle = more(figures["round_trips"]["slow-h2", "first"])
    busy = more(figures["busy_disk"].get("slow-h2"))
    yield goal(f"{first}, more than bare-curl", idle, 15, " ms", 0)
    yield goal(f"{first}, busy disk, more than bare-curl", busy, 15, " ms", 0)
    burst = figures["round_trips"]["slow-https", "silence"]["kivo"]
    trips = [milliseconds / ROUND_TRIP_MS for milliseconds in burst]
    whole = round(median(trips))
    name = "5 calls at once to an HTTP/1.1 host that is known, in round trips"
    yield [name, ranged(trips), "3", verdict(whole <= 3)]


def caller_goals(caller):
    asleep = caller["asleep_us"] / caller["signal_us"]
    name = "an operation on the caller's thread, Kivo asleep, against a bare signal"
    yield [name, f"{asleep:.2f}", "≤ 2.0", verdict(asleep <= 2)]
    awake = caller["awake_us"]
    yield ["an operation, Kivo awake", f"{awake:.2f} µs", "≤ 1 µs", verdict(awake <= 1)]
    allocations = caller["allocations"]
    yield [
        "allocations on the caller's thread",
        f"{allocations:.0f}",
        "≤ 6",
        verdict(allocations <= 6),
    ]


def footprint_goals(figures):
    handshakes = figures["handshakes"]
    name = "handshakes for initialise and setUser, h2"
    yield [name, ranged(handshakes, 0), "1", verdict(max(handshakes) == 1)]
    size, rest = figures["size"], figures["rest"]
    yield ["stripped shared library", f"{size:,} bytes", "≤ 315,000", verdict(size <= 315_000)]
    yield ["own threads at rest", rest["threads"], "2", verdict(rest["threads"] <= 2)]
    yield ["wake-ups at rest", rest["wakes"], "0", verdict(rest["wakes"] == 0)]
    more = (rest["kb"] - rest["curl_kb"]) / 1024
    name = "anonymous memory at rest over bare-curl"
    yield [name, f"{more:+.2f} MB", "≤ +0.5 MB", verdict(more <= 0.5)]
