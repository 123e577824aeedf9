"""What the rows are made of: a host in a process of its own, and the list of the rows."""

import collections
import concurrent.futures
import contextlib
import math
import os
import re
import sqlite3
import subprocess
import tempfile
import time
import tomllib
from types import SimpleNamespace

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
PATIENCE = 100  # Seconds; only a hang ever uses them up. More than twice Kivo's longest limit.
OUTCOME = re.compile(
    r"(?m)^((SDK Initialized|\w+) successfully: |Failed to (initialize SDK|\w+): |Invalid URL: |"
    "Successfully hit the image|Failed to (hit|retrieve) |Error hitting image URL: )"
)
EVERYTHING = 7  # Outcome lines of the host's "everything".
Ended = collections.namedtuple("Ended", "status output errors seconds outcomes")
place = SimpleNamespace(children=[], manners=[])
rows = []

with open(f"{HERE}/rows.toml", "rb") as table:
    TEXTS = tomllib.load(table)


class Skip(Exception):
    """Says why a row cannot be run here."""


def row(name, cases=()):
    """Enters a row: its function takes how often, returns what was seen and whether it is right."""

    def enter(function):
        entry = SimpleNamespace(name=name, function=function, **TEXTS[name])
        entry.done = entry.done.format(cases=", ".join(cases))
        entry.long = TEXTS[name].get("long", entry.short)
        rows.append(entry)
        return function

    return enter


def prepare(builds):
    place.build, place.tsan, place.asan = builds.build, builds.tsan, builds.asan
    place.work = tempfile.mkdtemp(prefix="kivo-torture-")
    place.shim = os.path.join(place.work, "shim.so")
    compiler = ["cc", "-shared", "-fPIC", "-O1", f"{HERE}/shim.c", "-o", place.shim, "-ldl"]
    subprocess.run(compiler, check=True)
    place.cert = make_certificate("DNS:localhost,DNS:two.example,IP:127.0.0.1,IP:::1")
    place.wrong_name = make_certificate("DNS:elsewhere.example")


def make_certificate(names):
    """Makes a file of a key and a certificate for the names."""
    file = os.path.join(home(), "certificate.pem")
    kind = "-x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj /CN=torture"
    command = f"openssl req {kind} -addext subjectAltName={names} -keyout - -out -"
    with open(file, "w") as both:
        subprocess.run(command.split(), check=True, stdout=both, stderr=subprocess.DEVNULL)
    return file


def home():
    return tempfile.mkdtemp(dir=place.work)


def start(commands, server=None, at=None, build=None, shim=None, around=(), **variables):
    """Starts a host. `around` is the start of a command line that ends in the host's; a variable
    that is None is removed."""
    at = at or home()
    env = {"PATH": os.environ["PATH"], "HOME": at, "SSL_CERT_FILE": place.cert}
    if server:
        env["https_proxy"] = f"http://127.0.0.1:{server.port}"
    if shim is not None:
        env |= {"LD_PRELOAD": place.shim} | shim
    env = {k: str(v) for k, v in (env | variables).items() if v is not None}
    pipes = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
    command = [f"{build or place.build}/tests/kivo-test-host", "name", *commands.split()]
    options = {"env": env, "cwd": at, "text": True, "errors": "replace"}
    process = subprocess.Popen([*around, *command], **options, **pipes)
    process.home, process.heard = at, ""
    return process


def finish(process, line=None, patience=PATIENCE):
    """Waits until a host has ended, and tells how."""
    began = time.monotonic()
    try:
        output, errors = process.communicate(line, timeout=patience)
    except subprocess.TimeoutExpired:
        process.kill()
        output, errors = process.communicate()
        errors = (errors or "") + "HANGS"
    seconds, output = time.monotonic() - began, process.heard + (output or "")
    return Ended(process.returncode, output, errors, seconds, len(OUTCOME.findall(output)))


def host(commands, *arguments, patience=PATIENCE, **more):
    return finish(start(commands, *arguments, **more), patience=patience)


def await_line(process, text):
    """Reads a host's lines up to one that begins so; returns it, or "" if the host ends first."""
    for line in process.stdout:
        process.heard += line
        if line.startswith(text):
            return line
    return ""


def go_on(process, meanwhile=lambda _: None):
    """Waits until a host pauses, does something, lets the host go on."""
    await_line(process, "paused")
    result = meanwhile(process)
    process.stdin.write("\n")
    process.stdin.flush()
    return result


def peak_memory(process):
    """The most that the process has held, in MB."""
    with open(f"/proc/{process.pid}/status") as status:
        return int(re.search(r"VmHWM:\s*(\d+)", status.read())[1]) // 1024


def brief(*all_ended):
    return [(e.status, e.outcomes, round(e.seconds, 1), e.errors[-200:]) for e in all_ended]


def require(holds, *seen):
    if not holds:
        raise AssertionError(*seen)


def is_clean(ended):
    return ended.status == 0 and ended.errors == ""


def ended_well(ended, outcomes):
    """What a row says of one host that was to print so many outcomes, and whether it did."""
    seen = f"{ended.outcomes} outcomes {ended.errors[:800]}"
    return seen, is_clean(ended) and ended.outcomes == outcomes


def spread(durations):
    """The middle one and the longest."""
    durations = sorted(durations) or [math.nan]
    return f"median {durations[len(durations) // 2]:.1f} ms, longest {durations[-1]:.1f} ms"


def told(cases, what="bad", most=4):
    """How many there are, and some of them."""
    return f"{len(cases)} {what}" + (f" {sorted(cases)[:most]}" if cases else "")


def in_folder(folder, name):
    os.makedirs(folder, exist_ok=True)
    return f"{folder}/{name}"


def keychain_file(at):
    return in_folder(f"{at}/.local/share/kivo", "keychain.db")


def defaults_file(at):
    return in_folder(f"{at}/.local/state/kivo/com.example.tests", "defaults.db")


def query(file, sql):
    with contextlib.closing(sqlite3.connect(file, timeout=10)) as database:
        return database.execute(sql).fetchall()


def defaults(at):
    """What is on disk, by key: nothing where a process was killed before it made the table."""
    file, is_made = defaults_file(at), "SELECT 1 FROM sqlite_schema WHERE name = 'defaults'"
    exists = os.path.exists(file) and query(file, is_made)
    return dict(query(file, "SELECT key, value FROM defaults")) if exists else {}


@contextlib.contextmanager
def small_disk(size="256k"):
    at = home()
    mount = ["mount", "-t", "tmpfs", "-o", f"size={size}", "none", at]
    if subprocess.run(mount, capture_output=True).returncode:
        raise Skip("needs the right to mount")
    try:
        yield at
    finally:
        subprocess.run(["umount", "-l", at])


def in_parallel(function, values, at_once=8):
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        return list(pool.map(function, values))


def judge(function, cases, what="cases", at_once=8):
    """What a row says of its cases, and whether all are right. The function returns what is bad
    about a case, and nothing where all is well."""
    faults = zip(cases, in_parallel(function, cases, at_once))
    bad = [f"{case}: {fault}" for case, fault in faults if fault]
    return f"{len(cases)} {what}, {told(bad)}", not bad
