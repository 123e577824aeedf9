"""What a server may say."""

import re
import time

from harness import brief, defaults, finish, go_on, host, in_parallel, is_clean, row, start, told
from peers import Server, Wire, envelope, reply

WORKS = "updateDeviceToken successfully: "
FAILS = "Failed to updateDeviceToken: "
HEAD = b"HTTP/1.1 200 OK\r\n"


def says(*arguments, **more):
    return lambda *_: reply(*arguments, **more)


def breaks_off(data):
    """Closes the connection after that, without TLS's goodbye."""
    return lambda _, connection: connection.sendall(data)


def without_end(start, more):
    def answer(_, connection):
        connection.sendall(start)
        while True:
            connection.sendall(more)

    return answer


SECOND = reply('{"success":true,"message":"second","data":null}')
BROKEN_CHUNK = HEAD + b"Transfer-Encoding: chunked\r\n\r\nzz\r\nboo"
LENGTH_OF_4_GB = HEAD + b"Content-Length: 4294967296\r\n\r\n"
MANY_HEADERS = "".join(f'X-{i}: {"v" * 200}\r\n' for i in range(400))

# What the server answers to a device token, and the line it ends in.
REPLIES = {
    "a body of 4 GB": (without_end(LENGTH_OF_4_GB, b"x" * 65536), FAILS),
    "TLS cut short": (breaks_off(HEAD + b'\r\n{"success":true,"mess'), FAILS),
    "too many levels": (says("[" * 100000), FAILS),
    "bytes that are not UTF-8": (says(b'{"success":true,"message":"\xff\xfe"}'), FAILS),
    "400 headers": (says(extra=MANY_HEADERS), WORKS),
    "a header of 1 MB": (says(extra="X: " + "v" * (1 << 20) + "\r\n"), FAILS),
    "headers without end": (without_end(HEAD, b"X: y\r\n" * 1000), FAILS),
    "not HTTP": (breaks_off(b"SSH-2.0-Something\r\n" * 50), FAILS),
    "HTTP 0.9": (breaks_off(b'{"success":true,"message":"ok"}'), FAILS),
    "two lengths": (says(extra="Content-Length: 3\r\n"), FAILS),
    "a second reply": (breaks_off(reply() + SECOND), WORKS),
    "a negative length": (lambda *_: HEAD + b"Content-Length: -5\r\n\r\n{}", FAILS),
    "a broken chunk": (breaks_off(BROKEN_CHUNK), FAILS),
    "100 without end": (without_end(b"", b"HTTP/1.1 100 Continue\r\n\r\n" * 100), FAILS),
    "204 with a body": (says(status=204), FAILS),
    "999": (says(status=999), WORKS),
    "data with a zero byte": (lambda *_: envelope('{"message":"\\u0000"}'), WORKS),
}


def memory(process):
    """The most that the process has held, in MB."""
    with open(f"/proc/{process.pid}/status") as status:
        return int(re.search(r"VmHWM:\s*(\d+)", status.read())[1]) // 1024


@row("replies", REPLIES)
def replies(times):
    bad, growth = [], []

    def look(process):
        return memory(process), defaults(process.home)

    def one(name):
        answer, expected = REPLIES[name]
        server = Server({"update-device-token": answer})
        process = start("init user await pause token await pause", server)
        (before, stored), began = go_on(process, look), time.monotonic()
        (after, stored_then), took = go_on(process, look), time.monotonic() - began
        ended = finish(process)
        growth.append(after - before)
        lines = re.findall(f"^(?:{WORKS}|{FAILS})", ended.output, re.M)
        is_right = is_clean(ended) and lines == [expected] and stored == stored_then
        if not is_right or took > 45 or after > before + 64:
            output = f"{ended.output[-300:]} {ended.errors[-100:]}"
            bad.append(f"{name}: {lines} {took:.0f} s, {before} -> {after} MB {output}")

    in_parallel(one, list(REPLIES) * times, 16)
    return f"{len(REPLIES) * times} replies, {told(bad)}; at most {max(growth)} MB more", not bad


WAYS_TO_CUT = ("reset", "close", "reset", "close", "silence")


@row("cut replies")
def cut_replies(times):
    bad, server = [], Server()

    def one(turn):
        cut, then = 1 + turn * 3600 // times, WAYS_TO_CUT[turn % 5]
        wire = Wire(server, cut, then, once=True)
        ended = host("init await user await token await token await", wire)
        failed = len(re.findall("^Failed", ended.output, re.M))
        if not is_clean(ended) or ended.outcomes != 4 or failed > 1:
            bad.append(f"{cut} {then}: {brief(ended)}")

    in_parallel(one, range(times), 16)
    return f"{times} positions, {told(bad)}", not bad


def refuse(*_):
    return reply('{"success":false,"message":"no"}', 401)


def longer_token(*_):
    time.sleep(0.2)
    return envelope('{"userToken":"' + "u" * 500 + '"}')


# What the server does from then on, and how many device tokens it is given.
REFUSALS = {
    "with a token": ({"token": refuse}, 5),
    "with growing headers": ({"token": refuse, "user/authenticate": longer_token}, 5),
    "on both authentications": ({"authenticate": refuse, "token": refuse}, 5),
    "without tokens": ({"": refuse}, 100),
}


@row("endless 401", REFUSALS)
def endless_401(times):
    bad, figures = [], {}

    def one(name):
        script, count = REFUSALS[name]
        server = Server()
        commands = f"{count}:token sleep pause 20:image await pause image await"
        image = "https://localhost/i"
        process = start(f"init user await pause {commands}", server, HOST_IMAGE=image)
        go_on(process, lambda _: server.script.update(script))
        began = time.monotonic()
        asked = go_on(process, lambda _: time.monotonic())

        def rest(process):
            took, rounds = time.monotonic() - began, len(server.requests)
            time.sleep(3)  # In which nothing more may arrive.
            return took, rounds, len(server.requests) - rounds, memory(process)

        took, rounds, late, megabytes = go_on(process, rest)
        ended = finish(process)
        sent = sum(r.size for r in server.requests) / 1e6
        waited = [r.time - asked for r in server.requests if r.path == "/i"][19]
        traffic = f"{rounds} requests, {sent:.1f} MB in {took:.0f} s, {late} late"
        rest = f"{megabytes} MB held, images within {waited * 1000:.0f} ms"
        figures[name] = f"{name}: {traffic}, {rest}"
        is_in_time = took <= 45 and late <= count and waited <= 1
        if not is_clean(ended) or ended.outcomes != count + 23 or megabytes > 200 or not is_in_time:
            bad.append(f"{name}: {brief(ended)}")

    in_parallel(one, list(REFUSALS) * times)
    return "; ".join([*figures.values(), told(bad)]), not bad
