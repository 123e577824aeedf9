"""What may happen to the files that Kivo keeps."""

import contextlib
import os
import pathlib
import random
import re
import sqlite3
import subprocess
import threading
import time

from harness import await_line, brief, defaults, defaults_file, finish, go_on, home, host
from harness import in_parallel, is_clean, judge, keychain_file, query, require, row, small_disk
from harness import spread, start
from peers import Server, hang

KEPT = {"UserJwtToken", "sessionId", "SdkAuthRequest", "UserAuthRequest"}


def number(value):
    """Of a token: how many were issued before it, with it."""
    return int(value.split("-")[1]) if value else 0


def user_token(at):
    return number(defaults(at)["UserJwtToken"])


@row("kill -9")
def kills(times):
    server, at, torn, lost, settled, floor = Server(), home(), 0, 0, [], 0
    for _ in range(times):
        process = start("time-lines init await " + "user settle " * 200, server, at)
        threading.Timer(random.uniform(0.02, 0.5), process.kill).start()
        while line := await_line(process, "settled"):
            settled.append(int(line.split()[1]) / 1000)
            floor = int(re.findall(r'userToken: "u-(\d+)"', process.heard)[-1])
        finish(process)
        kept = defaults(at)
        user, merchant = (number(kept.get(k)) for k in ("UserJwtToken", "MerchantJwtTokenTemp"))
        torn += merchant > 0 and (merchant != number(kept["sessionId"]) or merchant < user)
        lost += max(user, merchant) < floor
    seen = f"from the last line to the end of its commit {spread(settled)} ({len(settled)})"
    is_right = not torn and not lost and len(settled) > times / 10
    return f"{torn} torn, {lost} lost; {seen}", is_right


def nothing(_):
    pass


def bytes_in(content, *files_of):
    return lambda at: [pathlib.Path(file_of(at)).write_bytes(content) for file_of in files_of]


def database(file_of, script):
    def make(at):
        with contextlib.closing(sqlite3.connect(file_of(at))) as made:
            made.executescript(script)

    return make


DEFAULTS = "CREATE TABLE defaults (key TEXT PRIMARY KEY NOT NULL, value);"
OTHER_VERSION = f"""{DEFAULTS} PRAGMA user_version = 7; INSERT INTO defaults VALUES
('SdkAuthRequest', x'7b7d'), ('UserAuthRequest', 3.5), ('UserJwtToken', x'00'), ('sessionId', NULL);
"""
OTHER_SHAPE = "CREATE TABLE defaults (name, content, more);"


def item(data):
    columns = "service TEXT NOT NULL, account TEXT NOT NULL, data BLOB NOT NULL"
    table = f"CREATE TABLE items ({columns}, PRIMARY KEY (service, account));"
    names = "'kivo-access-token-service', 'kivo-device-auth-account'"
    return database(keychain_file, f"{table} INSERT INTO items VALUES ({names}, {data});")


def cut_short(at):
    database(defaults_file, DEFAULTS)(at)
    os.truncate(defaults_file(at), 5000)


def pipes(at):
    for file in (defaults_file(at), keychain_file(at)):
        os.mkfifo(file)


def pipe_for_a_journal(at):
    database(defaults_file, DEFAULTS)(at)
    os.mkfifo(defaults_file(at) + "-journal")


ENDLESS = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n)"
VIEW = f"CREATE VIEW defaults (key, value) AS {ENDLESS} SELECT i, zeroblob(9999999) FROM n;"
TRIGGER = f"""{DEFAULTS} CREATE TRIGGER t BEFORE INSERT ON defaults
BEGIN INSERT INTO defaults {ENDLESS} SELECT 'key' || i, i FROM n; END;"""
BLOBS = f"INSERT INTO defaults {ENDLESS} SELECT 'key' || i, zeroblob(9999999) FROM n LIMIT 12;"


# What prepares the home, variables of the host, its umask, how many identifiers the requests of
# three runs carry, and whether the tokens are on disk afterwards.
BEFORE = {
    "nothing": (nothing, {}, None, 1, True),
    "random bytes": (bytes_in(os.urandom(9000), defaults_file, keychain_file), {}, None, 1, True),
    "an empty file": (bytes_in(b"", defaults_file), {}, None, 1, True),
    "a database cut short": (cut_short, {}, None, 1, True),
    "a table of another shape": (database(defaults_file, OTHER_SHAPE), {}, None, 1, False),
    "records of another version": (database(defaults_file, OTHER_VERSION), {}, None, 1, True),
    "an endless view": (database(defaults_file, VIEW), {}, None, 1, True),
    "an endless trigger": (database(defaults_file, TRIGGER), {}, None, 1, True),
    "120 MB of foreign rows": (database(defaults_file, DEFAULTS + BLOBS), {}, None, 1, True),
    "pipes": (pipes, {}, None, "many", False),
    "a pipe for a journal": (pipe_for_a_journal, {}, None, 1, False),
    "umask 0": (nothing, {}, "0", 1, True),
    "umask 0777": (nothing, {}, "0777", 1, True),
    "no HOME": (nothing, {"HOME": None}, None, "many", False),
    "a HOME that is a file": (nothing, {"HOME": "/etc/passwd"}, None, "many", False),
    "a folder in the file's place": (lambda at: os.makedirs(defaults_file(at)), {}, None, 1, False),
    "a foreign item": (item("x'666f726569676e'"), {}, None, 1, True),
    "an empty item": (item("x''"), {}, None, 1, True),
    "an item that is not UTF-8": (item("x'fffe'"), {}, None, "many", True),
    "an item that is not data": (item("42"), {}, None, "many", True),
}
OURS_ALONE = {"nothing", "umask 0", "umask 0777"}  # No file is there that Kivo did not make.


@row("files found", BEFORE)
def files_found(times):
    def one(name):
        prepare, variables, umask, identifiers, is_kept = BEFORE[name]
        around = ("sh", "-c", f'umask {umask}; exec "$@"', "sh") if umask else ()
        at, server = home(), Server()
        prepare(at)
        commands = "init user await token await"
        ended = [host(commands, server, at, around=around, **variables) for _ in range(3)]
        seen = len({r.headers["x-unique-device-id"] for r in server.requests})
        kept = defaults(at).keys() if is_kept else KEPT
        files = pathlib.Path(at).rglob("*") if name in OURS_ALONE else ()
        modes = {oct(file.stat().st_mode & 0o777) for file in files}
        works = all(is_clean(e) and e.outcomes == 3 for e in ended)
        is_known = seen >= 3 if identifiers == "many" else seen == identifiers
        if not works or not is_known or not KEPT <= kept or modes - {"0o600", "0o700"}:
            return f"{brief(*ended)} identifiers {seen} kept {sorted(kept)} {modes}"

    return judge(one, list(BEFORE) * times)


def lock(file):
    holder = sqlite3.connect(file, isolation_level=None, check_same_thread=False)
    holder.execute("BEGIN EXCLUSIVE")
    return holder


@row("locked files")
def locked(times):
    for _ in range(times):
        at, server = home(), Server()
        process = start("init user await pause user 5:token await pause user await", server, at)
        holders = go_on(process, lambda _: [lock(defaults_file(at)), lock(keychain_file(at))])
        locked_at = time.monotonic()
        release = threading.Timer(5, lambda: [holder.close() for holder in holders])
        release.start()
        waited = go_on(process, lambda _: (release.join(), server.requests[-1].time - locked_at)[1])
        ended = finish(process)
        require(is_clean(ended) and ended.outcomes == 9 and waited < 2, waited, brief(ended))
        require(user_token(at) >= server.issued - 2, defaults(at))
    return f"nothing lost, the last requests within {waited * 1000:.0f} ms", True


def fill(at):
    with contextlib.suppress(OSError), open(f"{at}/filler", "ab", buffering=0) as file:
        while file.write(b"x" * 1024):
            pass


@row("disk full")
def disk_full(times):
    commands = "pause init user 5:token await pause user 5:token await pause user await"
    for turn in range(times):
        with small_disk() as at:
            server = Server()
            if turn % 2:
                fill(at)
            process = start(commands, server, at)
            for act in (nothing, fill, lambda at: os.remove(f"{at}/filler")):
                go_on(process, lambda _: act(at))
            ended, kept = finish(process), defaults(at)
            is_kept = KEPT <= kept.keys() and user_token(at) >= server.issued - 1
            require(is_clean(ended) and is_kept, brief(ended), kept, server.issued)
    return "recovered each time", True


@row("read-only")
def read_only(times):
    for turn in range(times):
        with small_disk() as at:
            server, commands = Server(), "init user await token await"
            if turn % 2 == 0:
                host("init user await", server, at)
                server.script = {"user/authenticate": hang}  # The token on disk is enough.
                commands = "init token await"
            subprocess.run(["mount", "-o", "remount,ro", at], check=True)
            ended = host(commands, server, at)
            require(is_clean(ended), brief(ended))
            require(ended.output.count("updateDeviceToken successfully") == 1, ended.output)
    return "tokens on the disk were used", True


@row("many processes")
def many_processes(times):
    refused = 0
    for turn in range(times):
        at, server, count = home(), Server(), (2, 4, 8)[turn % 3]
        commands = "pause init 16:user await 5:token await"
        processes = [start(commands, server, at) for _ in range(count)]
        in_parallel(go_on, processes)
        ended = in_parallel(finish, processes)
        check = query(defaults_file(at), "PRAGMA integrity_check")[0][0]
        items = query(keychain_file(at), "SELECT data FROM items")
        refused += sum(e.output.count("Error: -25299\n") for e in ended)
        other_errors = [e for e in ended if re.search("^Error: (?!-25299)", e.output, re.M)]
        works = all(is_clean(e) and e.outcomes == 22 for e in ended) and not other_errors
        is_whole = check == "ok" and KEPT <= defaults(at).keys() and len(items) == 1
        require(works and is_whole, check, items, brief(*ended))
        server.requests.clear()
        host("init user await token await", server, at)
        sent = {r.headers["x-unique-device-id"].encode() for r in server.requests}
        require(sent == {items[0][0]}, "another identifier", sent)
    return f"all whole, one item each time, {refused} refused as duplicates", True
