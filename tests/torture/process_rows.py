"""What a host may do to its own process, and what its machine may refuse it."""

import contextlib
import functools
import os
import random
import re
import signal
import subprocess
import sys
import time

from harness import EVERYTHING, PATIENCE, ROOT, Skip, await_line, brief, ended_well, finish, go_on
from harness import host, in_parallel, is_clean, judge, place, require, row, spread, start, told
from peers import Server, Wire, hang, in_background, nginx

# Each with the status that the process ends with.
NORMAL = "return", "exit", "quick-exit", "exit-elsewhere", "exit-static", "exit-in-handler"
ENDINGS = dict.fromkeys(NORMAL, 0)
ENDINGS["abort"] = -signal.SIGABRT


@row("ends")
def ends(times):
    server, bad, hooks = Server({"": hang}), [], []
    combinations = [(e, n) for e in ENDINGS for n in (0, 1, 10, 100, 500)]
    for turn in range(times):
        ending, load = combinations[turn % len(combinations)]
        ended = host(f"time-exit init user {load}:token {ending}", server)
        hooks += [int(n) / 1000 for n in re.findall(r"^hook (\d+)\n$", ended.errors)]
        errors = re.sub(r"^hook \d+\n$", "", ended.errors)
        if ended.status != ENDINGS[ending] or errors:
            bad.append(f"{ending} {load}: {ended.status} {errors}")
    *most, _, longest = sorted(hooks)
    is_quick = most[-1] < 200 and longest < 2000
    return f'{told(bad, "bad ends")}; hook {spread(hooks)}', not bad and is_quick


@row("ends, output stalled")
def ends_stalled(times):
    held = 0
    for _ in range(times):
        # More lines than a pipe holds.
        process = start("init user 5000:token sleep exit", Server())
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(PATIENCE)
        held += process.poll() is None
        ended = finish(process)
        require(is_clean(ended), brief(ended))
    return f"held {held} of {times} times", held == 0


@row("forks")
def forks(times):
    for _ in range(times):
        server = Server()
        late = host("init user 50:token fork spawn await token await", server)
        early = host("fork everything await", server)
        amid = [host("fork-early await", server, patience=20) for _ in range(8)]
        children = all("child ended with 0" in e.output for e in (late, early, *amid))
        outcomes = (late.outcomes, early.outcomes)
        is_right = children and "spawned 7" in late.output and outcomes == (53, 2 * EVERYTHING)
        require(is_right and is_clean(late), brief(late, early, *amid))
    return "children did nothing; 53 outcomes in the parent, 7 each where the fork came first", True


# Uses OpenSSL and SQLite, calls main() of a plug-in, closes it and works on for a second.
PLUGIN_HOST = """
import ctypes, _ctypes, hashlib, sqlite3, ssl, sys, time
context = ssl.create_default_context()
sqlite3.connect(":memory:").execute("select 1")
library, words = ctypes.CDLL(sys.argv[1]), [word.encode() for word in sys.argv[2:]]
library.main(len(words), (ctypes.c_char_p * len(words))(*words))
_ctypes.dlclose(library._handle)
for i in range(200): hashlib.sha256(bytes(100000)).digest(); time.sleep(0.005)
"""


@row("plug-in")
def plug_in(times):
    plugin = os.path.join(place.work, "plugin.so")
    sources = f"-I{ROOT} -I{ROOT}/include {ROOT}/tests/host/main.cpp {place.build}/kivo/libkivo.a"
    options = f"-std=c++20 -shared -fPIC {sources} -lcurl -lidn2 -lsqlite3 -ldl -lpthread"
    subprocess.run(["c++", *options.split(), "-o", plugin], check=True)
    for _ in range(times):
        around = (sys.executable, "-c", PLUGIN_HOST, plugin)
        ended = host("init user 30:token", Server(), around=around)
        require(is_clean(ended) and ended.outcomes == 32, ended)
    return "32 outcome lines each, the last ones after the plug-in was closed", True


def count_calls(kind, commands):
    ended = host(commands, Server(), shim={"FAIL_KIND": kind, "FAIL_AT": 0})
    return int(ended.errors.split()[1])


def fail_each(kind, times, forever=0):
    """Has the k-th call fail, the early ones above all. An operation that is hurt may be dropped or
    end by its time limit; the host lives, the wait ends, and later operations work, except where a
    library could not start."""
    commands = "fail everything await heal init user await token await"
    calls, first_load = count_calls(kind, commands), count_calls(kind, "fail init await heal")
    bad, slow, dead = [], [], []

    def one(k):
        shim = {"FAIL_KIND": kind, "FAIL_AT": k, "FAIL_FOREVER": forever}
        ended = host(commands, Server(), shim=shim)
        if ended.seconds > 25:
            slow.append(k)
        if "updateDeviceToken successfully: " not in ended.output:
            dead.append(k)
        is_calm = re.fullmatch(r"calls \d+\n", ended.errors) and "not idle" not in ended.output
        if ended.status or not is_calm:
            bad.append(f"{k}: {ended.status} {ended.errors[-200:]}")

    turns = sorted({1 + int(calls * (i / times) ** 3) for i in range(times)})
    in_parallel(one, turns)
    ends = f'{len(slow)} ended by a time limit, {told(dead, "left TLS without function", 9)}'
    is_right = not bad and all(kind == "memory" and k < first_load for k in dead)
    return f"{len(turns)} of {calls} calls: {told(bad)}, {ends}", is_right


@row("no memory for long")
def no_memory_for_long(times):
    pause = "sleep " * 20
    commands = f"init user await 15000:token fail {pause}heal await token await"
    shim = {"FAIL_KIND": "memory", "FAIL_AT": 1, "FAIL_FOREVER": 1}
    for _ in range(times):
        ended = host(commands, Wire(nginx(), proxy=True), shim=shim)
        last = ended.output.rstrip().split("\n")[-1]
        is_right = ended.status == 0 and last.startswith("updateDeviceToken successfully: ")
        require(is_right, brief(ended), last)
    return f"{ended.outcomes} outcomes and {ended.errors}", True


def processor_time(process):
    with open(f"/proc/{process.pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


@row("closed descriptors")
def closed_descriptors(seconds):
    commands = "init user await 3:token sleep close-all pause pause"  # Amid operations.
    process = start(commands, Server({"device-token": hang}))
    before = go_on(process, processor_time)
    await_line(process, "paused")
    time.sleep(seconds)
    used = processor_time(process) - before
    process.kill()
    return f"{used:.2f} s of processor time in {seconds} s", used < seconds / 10


# Has the kernel refuse the system calls of these numbers, then becomes another program.
REFUSAL = """
import ctypes, os, struct, sys
code = struct.pack("HBBI", 0x20, 0, 0, 0)
for number in sys.argv[1].split(","):
    code += struct.pack("HBBIHBBI", 0x15, 0, 1, int(number), 6, 0, 0, 0x50001)
code = ctypes.create_string_buffer(code + struct.pack("HBBI", 6, 0, 0, 0x7FFF0000), len(code) + 8)
program = struct.pack("HxxxxxxQ", len(code) // 8, ctypes.addressof(code))
prctl = ctypes.CDLL(None).prctl
prctl(38, 1, 0, 0, 0) == prctl(22, 2, program, 0, 0) == 0 or sys.exit("no filter")
os.execvp(sys.argv[2], sys.argv[2:])
"""
REFUSED = {"poll": "7", "recvfrom": "45"}


@row("refused system calls", REFUSED)
def refused_calls(times):
    if os.uname().machine != "x86_64":
        raise Skip("knows the numbers of x86-64 alone")

    def one(name):
        around = (sys.executable, "-c", REFUSAL, REFUSED[name])
        commands, image = "init user 3:token image await pause", "https://localhost/i"
        process = start(commands, Server(), around=around, HOST_IMAGE=image)
        used, ended = go_on(process, processor_time), finish(process)
        used_up.append(f"{name}: {used:.1f} s")
        if not is_clean(ended) or ended.outcomes != 6 or used > 3:
            return f"{brief(ended)} {used}"

    used_up = []
    seen, is_right = judge(one, list(REFUSED) * times)
    return f"{seen}; of processor time in 30 s, {', '.join(used_up)}", is_right


row("no memory, once")(functools.partial(fail_each, "memory"))
row("system calls fail")(functools.partial(fail_each, "system"))


@row("no threads")
def no_threads(times):
    seen, is_right = fail_each("thread", times)

    def misled(k):
        server = Server()  # Its certificate is good for the development backend alone.
        commands = "fail init-production await heal init-production user await"
        host(commands, server, shim={"FAIL_KIND": "thread", "FAIL_AT": k})
        return len(server.requests)

    wrong = sum(in_parallel(misled, (1, 2, 3)))
    return f"{seen}; {wrong} requests to the wrong backend", is_right and wrong == 0


@row("disk errors")
def disk_errors(times):
    once, forever = fail_each("disk", times // 2), fail_each("disk", times - times // 2, 1)
    return f"once: {once[0]}; from then on: {forever[0]}", once[1] and forever[1]


SENT = (signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM, signal.SIGHUP)


@row("signals")
def signals(times):
    commands = f"signals pause init user {times}:token await signals-handled"
    process = start(commands, Server())
    go_on(process)

    def storm():
        while process.poll() is None:
            process.send_signal(random.choice(SENT))
            time.sleep(0.0005)

    in_background(storm)
    ended = finish(process)
    handled = re.findall("handled .*", ended.output)[0]
    return f"{ended.outcomes} outcomes, {handled}", ended_well(ended, times + 2)[1]


OUTPUTS = {
    "closed": '"$@" >&-',
    "full": '"$@" >/dev/full',
    "broken": '"$@" | true; exit ${PIPESTATUS[0]}',
    "limited": 'ulimit -f 8; "$@" >lines',
}


@row("standard output")
def standard_output(times):
    seen, is_right = [], True
    for name, script in OUTPUTS.items():
        server, around = Server(), ("bash", "-c", script, "bash")
        ended = host("init user await 40:token await", server, around=around)
        requests = sum(r.path.endswith("update-device-token") for r in server.requests)
        errors = f"{ended.errors!r} on standard error"
        seen.append(f"{name}: status {ended.status}, {errors}, {requests} requests")
        is_right = is_right and is_clean(ended) and requests == 40
    return "; ".join(seen), is_right


@row("stopped")
def stopped(seconds):
    # The first wait of the two may end while the process is stopped.
    process = start("init user await pause 40:token await await", Server())
    go_on(process)
    for nap, sent in (0.02, signal.SIGSTOP), (seconds, signal.SIGCONT):
        time.sleep(nap)
        os.kill(process.pid, sent)
    return ended_well(finish(process), 42)


@row("locale")
def locale(times):
    server = Server()
    seen, is_right = ended_well(host("locale init everything await", server), EVERYTHING)
    lengths = [r.headers.get("content-length", "") for r in server.requests]
    is_plain = all(r.size < 2000 for r in server.requests) and not any("." in n for n in lengths)
    return seen, is_right and is_plain
