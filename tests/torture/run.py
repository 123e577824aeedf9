"""Runs the rows, side by side, and writes what was seen. See scripts/torture."""

import argparse
import collections
import concurrent.futures
import importlib
import os
import shutil
import sys
import time
import traceback

import harness
import report

# They enter their rows in this order.
MODULES = ("process_rows", "manners_row", "state_rows", "network_rows", "connection_rows")
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
    """Runs a row and returns its line of the table."""
    began, times = time.monotonic(), row.short if options.short else row.long
    seen, is_right = perform(row, times)
    seen, verdict = " ".join(seen.split())[:3000], VERDICTS[is_right]
    took = time.monotonic() - began
    print(f"{verdict:8}{row.name:24}{times:6} times {took:6.1f} s  {seen}", flush=True)
    return row.name, row.done, times, row.expected, seen, verdict


def write_report(results, options):
    form = "the short form" if options.short else "the long form"
    manners = [(*fact, VERDICTS[is_right]) for *fact, is_right in harness.place.manners]
    report.write(options.report, form, f"Debian 12, {os.cpu_count()} cores", results, manners)


def parse_options():
    parser = argparse.ArgumentParser(prog="scripts/torture")
    for name in ("build", "tsan", "asan", "report"):
        parser.add_argument("--" + name, type=os.path.abspath)
    parser.add_argument("--short", action="store_true", help="the counts for CI")
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
    for module in MODULES:
        importlib.import_module(module)
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
