"""The picture that results.md opens with: CPU a call beside every peer, and how it grows."""

import statistics

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "kivo"
import matplotlib.pyplot as plt  # noqa: E402  The backend is chosen before.

# Both are read on white and on a dark page alike.
ACCENT, QUIET = "#d9480f", "#737b84"
IN_FLIGHT = [1, 16, 256]
SCHEME, BESIDE = "https", 16
LEAST_GAP = 1.16
NAMES = {
    "kivo": "Kivo",
    "queued-curl": "queued-curl",
    "bare-curl": "bare-curl",
    "soup": "libsoup",
    "qt": "Qt",
    "beast": "Beast",
}


def draw(calls, file):
    """`calls` is {(scheme, in flight): {candidate: [readings]}}."""
    costs = {
        NAMES[name]: [cpu(calls[SCHEME, count][name]) for count in IN_FLIGHT]
        for name in calls[SCHEME, BESIDE]
    }
    figure, (beside, growth) = plt.subplots(1, 2, figsize=(9, 3.6), layout="constrained")
    draw_bars(beside, {name: each[IN_FLIGHT.index(BESIDE)] for name, each in costs.items()})
    draw_lines(growth, costs)
    for axes in (beside, growth):
        quieten(axes)
    figure.savefig(file, transparent=True, metadata={"Date": None, "Creator": None})
    plt.close(figure)


def cpu(readings):
    return statistics.median(reading["cpu_us"] for reading in readings)


def colour(name):
    return ACCENT if name == "Kivo" else QUIET


def write(axes, x, y, text, name, **placed):
    weight = "bold" if name == "Kivo" else "normal"
    axes.text(x, y, text, va="center", color=colour(name), weight=weight, **placed)


def draw_bars(axes, costs):
    names = sorted(costs, key=costs.get, reverse=True)
    axes.barh(names, [costs[name] for name in names], color=[colour(name) for name in names])
    for place, name in enumerate(names):
        write(axes, 0, place, f"{name}  ", name, ha="right")
        write(axes, costs[name], place, f" {costs[name]:.0f} µs", name)
    title(axes, f"CPU a call, {SCHEME}, {BESIDE} in flight")
    axes.set_xticks([])
    axes.set_yticks([])
    axes.margins(x=0.18)


def draw_lines(axes, costs):
    for name, each in costs.items():
        width = 2.5 if name == "Kivo" else 1.2
        axes.plot(IN_FLIGHT, each, color=colour(name), linewidth=width, marker="o", markersize=4)
    for name, height in spread({name: each[-1] for name, each in costs.items()}).items():
        write(axes, 330, height, name, name)
    title(axes, "The same in µs, with 1, 16 and 256 in flight")
    axes.set_xscale("log", base=2)
    axes.set_yscale("log")
    axes.set_xticks(IN_FLIGHT, IN_FLIGHT)
    axes.set_yticks([10, 20, 50, 100, 200], [10, 20, 50, 100, 200])
    axes.minorticks_off()


def spread(heights):
    """Moves labels up that would stand on the one below; the scale is logarithmic."""
    placed, lowest = {}, 0
    for name in sorted(heights, key=heights.get):
        placed[name] = max(heights[name], lowest)
        lowest = placed[name] * LEAST_GAP
    return placed


def title(axes, text):
    axes.set_title(text, color=QUIET, fontsize=11, loc="left", pad=12)


def quieten(axes):
    axes.tick_params(colors=QUIET, length=0)
    for side, spine in axes.spines.items():
        spine.set_visible(side == "left")
        spine.set_color(QUIET)
