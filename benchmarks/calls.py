"""What a call costs: time on the processor, system calls, instructions, and its caller's time."""

import statistics

SCHEMES = ["http", "https", "h2"]
IN_FLIGHT = [1, 16, 256]


def calls(programs, plan):
    """Readings of a call: {(scheme, in flight): {candidate: [one reading a round]}}."""
    cells = {
        (scheme, count): {name: [] for name in programs.candidates(scheme)}
        for scheme in SCHEMES
        for count in IN_FLIGHT
    }
    for turn in range(plan.rounds):
        print(f"calls, round {turn + 1} of {plan.rounds}", flush=True)
        for (scheme, count), readings in cells.items():
            for name, its in readings.items():
                command = programs.load(name, scheme, plan.calls, count)
                its.append(programs.reading([*programs.pinned, *command]))
    return cells


def system_calls(programs, plan):
    """System calls a call over https: {in flight: {candidate: [one count a round]}}."""
    counts = {count: {name: [] for name in programs.candidates("https")} for count in (1, 256)}
    for _ in range(plan.rounds):
        for in_flight, readings in counts.items():
            for name, its in readings.items():
                count = system_calls_a_call(programs, plan, name, in_flight)
                if count is not None:
                    its.append(count)
    return counts


def system_calls_a_call(programs, plan, name, in_flight):
    """The difference of two runs, which a program's start and end cancel out of."""
    few, many = (
        programs.system_calls([*programs.pinned, *programs.load(name, "https", calls, in_flight)])
        for calls in (500, 500 + plan.calls)
    )
    return None if many is None else (many - few) / plan.calls


def instructions(programs, plan):
    """Instructions a call over plain http, the median of some counts: {candidate: count}."""

    def a_call(name):
        few, many = (
            programs.instructions(programs.load(name, "http", calls, 16)) for calls in (500, 1500)
        )
        return (many - few) / 1000

    counts = range(min(plan.rounds, 3))
    return {
        name: statistics.median(a_call(name) for _ in counts) for name in ("kivo", "queued-curl")
    }


def caller(programs, plan):
    """What a public operation costs its caller, each figure the median of the rounds."""
    readings = [programs.reading([programs.path("caller")]) for _ in range(plan.rounds)]
    return {key: statistics.median(one[key] for one in readings) for key in readings[0]}
