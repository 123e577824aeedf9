"""How Kivo behaves as a guest: what a look at a host's process from outside shows."""

import os
import re
import signal

from harness import finish, go_on, host, place, row, start
from peers import Server

THREADS = ["kivo-network", "kivo-pool-1", "kivo-pool-2"]
FAULTS = {"SEGV", "BUS", "FPE", "ILL", "TRAP", "ABRT", "SYS", "PROF"}
FAULTS = {int(signal.Signals[f"SIG{name}"]) for name in FAULTS}
OF_THE_C_LIBRARY = 3 << 31  # Signals 32 and 33.
CLOSES_ON_EXEC = 0o2000000
BLOCKABLE = set(range(1, 32)) - {signal.SIGKILL, signal.SIGSTOP}


def text(file):
    with open(file) as content:
        return content.read()


def field(status, name):
    return re.search(rf"^{name}:\s*(.*)$", status, re.M)[1]


def is_ours(thread):
    return re.match("kivo-(?!test)", thread)


def look(process):
    """What /proc tells of a host."""
    proc = f"/proc/{process.pid}"
    status = text(f"{proc}/status")
    tasks = [text(f"{proc}/task/{task}/status") for task in os.listdir(f"{proc}/task")]
    own = {
        field(s, "Name"): int(field(s, "SigBlk"), 16) for s in tasks if is_ours(field(s, "Name"))
    }
    infos = [text(f"{proc}/fdinfo/{d}") for d in os.listdir(f"{proc}/fd")]
    flags = [int(field(info, "flags"), 8) for info in infos]
    walk = os.walk(process.home)
    paths = [os.path.join(folder, name) for folder, ds, fs in walk for name in ds + fs]
    files = [path for path in paths if "kivo" in path.removeprefix(process.home)]
    actions = [int(field(status, n), 16) for n in ("SigCgt", "SigIgn", "SigBlk")]
    return {
        "threads": sorted(own),
        "descriptors": len(flags),
        "inherited": sum(not f & CLOSES_ON_EXEC for f in flags),
        "open": {n for n in BLOCKABLE for mask in own.values() if not mask >> (n - 1) & 1},
        "actions": [mask & ~OF_THE_C_LIBRARY for mask in actions],
        "place": (field(status, "Umask"), os.readlink(f"{proc}/cwd")),
        "children": text(f"{proc}/task/{process.pid}/children"),
        "modes": {oct(os.stat(file).st_mode & 0o777) for file in files},
    }


@row("manners")
def manners(times):
    process = start("pause init user 40:token await pause 200:token pause await", Server())
    before, rest, load = seen = [go_on(process, look) for _ in range(3)]
    ended = finish(process)
    commands = "init user await fail everything 50:token await heal"
    asked = host(commands, Server(), shim={"FAIL_KIND": "environment"}).errors.strip()
    inherited = rest["inherited"] - before["inherited"]
    descriptors = [s["descriptors"] for s in seen]
    is_modest = max(descriptors) <= descriptors[0] + 20
    is_private = rest["modes"] <= {"0o600", "0o700"}
    # What, what is allowed, what was seen, whether that is right.
    facts = [
        ("own threads, by name", "these 3", rest["threads"], rest["threads"] == THREADS),
        ("signals open to them", "faults and SIGPROF", rest["open"], rest["open"] <= FAULTS),
        ("dispositions", "as before", *compare(before["actions"], rest["actions"])),
        ("descriptors before, at rest, under load", "+20", descriptors, is_modest),
        ("open on exec, beyond the host's", "libcurl's 2 at most", inherited, inherited <= 2),
        ("umask, directory", "as before", *compare(before["place"], rest["place"])),
        ("children", "none", rest["children"] or "none", rest["children"] == ""),
        ("environment reads and writes after start", "0", asked, asked == "calls 0"),
        ("standard error", "empty", ended.errors or "empty", ended.errors == ""),
        ("modes of files and folders", "0600, 0700", rest["modes"], is_private),
    ]
    place.manners = facts
    return f"{sum(f[3] for f in facts)} of {len(facts)} right", all(f[3] for f in facts)


def compare(before, after):
    return ("as before", True) if before == after else (after, False)
