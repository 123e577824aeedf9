"""How Kivo behaves as a guest: what a look at a host's process from outside shows."""

import os
import pathlib
import re
import signal

from harness import finish, go_on, host, place, row, start
from peers import Server

THREADS = ["kivo-helper", "kivo-loop"]
FAULTS = {signal.Signals[f"SIG{n}"] for n in "SEGV BUS FPE ILL TRAP ABRT SYS PROF".split()}
OF_THE_C_LIBRARY = 3 << 31  # Signals 32 and 33.
CLOSES_ON_EXEC = 0o2000000
BLOCKABLE = set(range(1, 32)) - {signal.SIGKILL, signal.SIGSTOP}


def fields(file):
    return dict(re.findall(r"^(\w+):\s*(.*)$", file.read_text(), re.M))


def look(process):
    """What /proc tells of a host."""
    proc, home = pathlib.Path(f"/proc/{process.pid}"), pathlib.Path(process.home)
    status = fields(proc / "status")
    tasks = [fields(task) for task in proc.glob("task/*/status")]
    own = {t["Name"]: int(t["SigBlk"], 16) for t in tasks if re.match("kivo-(?!test)", t["Name"])}
    flags = [int(fields(info)["flags"], 8) for info in proc.glob("fdinfo/*")]
    actions = [int(status[n], 16) & ~OF_THE_C_LIBRARY for n in ("SigCgt", "SigIgn", "SigBlk")]
    files = [path for path in home.rglob("*") if "kivo" in str(path.relative_to(home))]
    return {
        "threads": sorted(own),
        "descriptors": len(flags),
        "inherited": sum(not f & CLOSES_ON_EXEC for f in flags),
        "open": {n for n in BLOCKABLE for mask in own.values() if not mask >> (n - 1) & 1},
        "settings": [*actions, status["Umask"], os.readlink(proc / "cwd")],
        "children": (proc / f"task/{process.pid}/children").read_text(),
        "modes": {oct(file.stat().st_mode & 0o777) for file in files},
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
    settings = "as before" if rest["settings"] == before["settings"] else rest["settings"]
    is_modest = max(descriptors) <= descriptors[0] + 20
    is_private = rest["modes"] <= {"0o600", "0o700"}
    # What, what is allowed, what was seen, whether that is right.
    facts = [
        ("own threads, by name", "these 2", rest["threads"], rest["threads"] == THREADS),
        ("signals open to them", "faults and SIGPROF", rest["open"], rest["open"] <= FAULTS),
        ("dispositions, umask, directory", "as before", settings, settings == "as before"),
        ("descriptors before, at rest, under load", "+20", descriptors, is_modest),
        ("open on exec, beyond the host's", "libcurl's 2 at most", inherited, inherited <= 2),
        ("children", "none", rest["children"] or "none", rest["children"] == ""),
        ("environment reads and writes after start", "0", asked, asked == "calls 0"),
        ("standard error", "empty", ended.errors or "empty", ended.errors == ""),
        ("modes of files and folders", "0600, 0700", rest["modes"], is_private),
    ]
    place.manners = facts
    return f"{sum(f[3] for f in facts)} of {len(facts)} right", all(f[3] for f in facts)
