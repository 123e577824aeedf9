"""Runs the rows, side by side, and writes what was seen. See scripts/torture."""

import argparse
import collections
import concurrent.futures
import os
import shutil
import sys
import time
import traceback

import harness
import report

# They enter their rows in this order.
import process_rows  # noqa: F401
import manners_row  # noqa: F401
import state_rows  # noqa: F401
import network_rows  # noqa: F401
import connection_rows  # noqa: F401

VERDICTS = {True: "good", False: "BAD", None: "skipped"}


def perform(row, count):
    """What was seen, and whether it is right."""
    try:
        return row.function(count)
    except harness.Skip as reason:
        return f"skipped: {reason}", None
    except Exception:
        return traceback.format_exc(limit=-3), False


def run(row, options):
    """Runs a row, in the form of --minutes again and again, and returns its line of the table."""
    began, times, is_right = time.monotonic(), 0, True
    count = row.short if options.short or options.minutes else row.long
    while times == 0 or is_right and time.monotonic() - began < options.minutes * 60:
        seen, is_right = perform(row, count)
        times += count
    seen, verdict = " ".join(seen.split())[:3000], VERDICTS[is_right]
    took = time.monotonic() - began
    print(f"{verdict:8}{row.name:24}{times:6} times {took:6.1f} s  {seen}", flush=True)
    return row.name, row.done, times, row.expected, seen, verdict


def write_report(results, options):
    form = "the short form" if options.short or options.minutes else "the long form"
    if options.minutes:
        form += f", {options.minutes} minutes a row"
    manners = [(*fact, VERDICTS[is_right]) for *fact, is_right in harness.place.manners]
    report.write(options.report, form, f"Debian 12, {os.cpu_count()} cores", results, manners)


def parse_options():
    parser = argparse.ArgumentParser(prog="scripts/torture")
    for name in ("build", "tsan", "asan", "report"):
        parser.add_argument("--" + name, type=os.path.abspath)
    counts, again = "the counts for CI", "repeat the short form of every row for that long"
    parser.add_argument("--short", action="store_true", help=counts)
    parser.add_argument("--minutes", type=float, default=0, help=again)
    names = [row.name for row in harness.rows] + [[]]
    parser.add_argument("rows", nargs="*", choices=names, metavar="row")
    return parser.parse_args()


def run_all(rows, options):
    alone = [row for row in rows if row.name == "ends"]  # It measures milliseconds.
    results = [run(row, options) for row in alone]
    with concurrent.futures.ThreadPoolExecutor(6) as pool:
        beside = [row for row in rows if row not in alone]
        return results + list(pool.map(lambda row: run(row, options), beside))


def clean_up():
    for child in harness.place.children:
        child.terminate() if hasattr(child, "terminate") else child.close()
    shutil.rmtree(harness.place.work, ignore_errors=True)


def main():
    options = parse_options()
    harness.prepare(options)
    chosen = [row for row in harness.rows if not options.rows or row.name in options.rows]
    results = run_all(chosen, options)
    clean_up()
    verdicts = collections.Counter(result[-1] for result in results)
    print(", ".join(f"{count} {verdict}" for verdict, count in verdicts.items()))
    if options.report and not options.rows:
        write_report(results, options)
    return "BAD" in verdicts


sys.exit(main())
