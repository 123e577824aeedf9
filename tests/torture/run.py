"""Runs the rows, side by side, and writes what was seen. See scripts/torture."""

import argparse, collections, concurrent.futures, os, shutil, sys, time, traceback

import harness, process_rows, state_rows, network_rows

HEAD = """# What was done to Kivo, and what came of it

Written by `scripts/torture` ({form}; {machine}). Every host is a process of its own that links the library and talks TLS
to a server on loopback; "bad" counts what broke the expectation. `scripts/torture ROW` runs a row alone.

| row | what was done | how often | expected | seen | verdict |
|---|---|---|---|---|---|
"""
TAIL = """
## Manners

| what | allowed | seen | verdict |
|---|---|---|---|
{manners}

## Shown elsewhere, or not shown

- Fault rules of `kivo-dev`, line by line: `docs/FAULTS.md`, held by the tests. Fuzzing: `scripts/fuzz` (replies and
  stored records, addresses, redirects and headers, requests and rules).
- Exported symbols: `tests/packaging`. None of the JSON library's is among them, so a host may carry a build of its own.
- Known limits. OpenSSL begins once: where one of its first allocations fails, TLS stays away for that process, and
  its operations end in their time limits. It also takes a reply without a length as whole when the connection ends
  without TLS's own goodbye; half a JSON text does not decode. The exit hook gives up after 40 ms; 50 are allowed.
- Not shown: a machine without power, a kernel out of memory, `tc netem` (delays and rates are made by a proxy instead),
  network namespaces (the proxies and 127/8 stand in), a reset at every single byte unless the long form is run.
"""


def run(row, often):
    began, runs, times = time.monotonic(), 0, 0
    while runs == 0 or time.monotonic() - began < often.seconds and is_right:
        count = row.long if often.is_long else row.short
        try: seen, is_right = row.function(count)
        except harness.Skip as reason: seen, is_right = f'skipped: {reason}', None
        except Exception: seen, is_right = traceback.format_exc(limit=-3), False
        runs, times = runs + 1, times + count
    verdict = {True: 'good', False: 'BAD', None: 'skipped'}[is_right]
    seen = ' '.join(seen.split())[:3000]
    print(f'{verdict:8}{row.name:24}{times:6} times {time.monotonic() - began:6.1f} s  {seen}', flush=True)
    return (row.name, row.done, times, row.expected, seen, verdict)


def shown(cell):
    if isinstance(cell, set): cell = sorted(cell)
    if isinstance(cell, list): cell = ', '.join(map(str, cell))
    return str(cell).replace('|', '\\|')


def table(lines): return '\n'.join('| ' + ' | '.join(map(shown, line)) + ' |' for line in lines)


def main():
    parser = argparse.ArgumentParser(prog='scripts/torture')
    for name in ('build', 'tsan', 'asan', 'report'): parser.add_argument('--' + name, type=os.path.abspath)
    parser.add_argument('--short', action='store_true', help='the counts that continuous integration can afford')
    parser.add_argument('--minutes', type=float, help='repeat the short form of every row for that long')
    parser.add_argument('rows', nargs='*', choices=[r.name for r in harness.rows] + [[]], metavar='row')
    options = parser.parse_args()
    harness.prepare(options)
    often = argparse.Namespace(is_long=not (options.short or options.minutes), seconds=(options.minutes or 0) * 60)
    chosen = [r for r in harness.rows if not options.rows or r.name in options.rows]
    alone = [r for r in chosen if r.name == 'ends']  # It measures milliseconds.
    results = [run(r, often) for r in alone]
    with concurrent.futures.ThreadPoolExecutor(6) as pool:
        results += pool.map(lambda r: run(r, often), [r for r in chosen if r not in alone])
    for child in harness.place.children: child.terminate() if hasattr(child, 'terminate') else child.close()
    shutil.rmtree(harness.place.work, ignore_errors=True)
    verdicts = collections.Counter(r[-1] for r in results)
    print(', '.join(f'{n} {v}' for v, n in verdicts.items()))
    if options.report and not options.rows:
        form = 'the long form' if often.is_long else f'the short form, {options.minutes} minutes a row' if often.seconds else 'the short form'
        manners = table((*f[:3], 'good' if f[3] else 'BAD') for f in getattr(harness.place, 'manners', []))
        with open(options.report, 'w') as out:
            out.write(HEAD.format(form=form, machine=f'Debian 12, {os.cpu_count()} cores') + table(results) + '\n' + TAIL.format(manners=manners))
    return 'BAD' in verdicts


sys.exit(main())
