"""What a server may say."""

import re
import time

from harness import brief, defaults, finish, go_on, host, is_clean, judge, peak_memory, row, start
from peers import Server, Wire, envelope, reply

WORKS = "updateDeviceToken successfully: "
FAILS = "Failed to updateDeviceToken: "
HEAD = b"HTTP/1.1 200 OK\r\n"


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
EMPTY_CHUNKS = HEAD + b"Transfer-Encoding: chunked\r\n\r\n0\r\n"
LENGTH_OF_4_GB = HEAD + b"Content-Length: 4294967296\r\n\r\n"
MANY_HEADERS = "".join(f'X-{i}: {"v" * 200}\r\n' for i in range(400))

# What the server answers to a device token, and the line it ends in.
REPLIES = {
    "a body of 4 GB": (without_end(LENGTH_OF_4_GB, b"x" * 65536), FAILS),
    "TLS cut short": (breaks_off(HEAD + b'\r\n{"success":true,"mess'), FAILS),
    "too many levels": (reply("[" * 100000), FAILS),
    "bytes that are not UTF-8": (reply(b'{"success":true,"message":"\xff\xfe"}'), FAILS),
    "400 headers": (reply(extra=MANY_HEADERS), WORKS),
    "a header of 1 MB": (reply(extra="X: " + "v" * (1 << 20) + "\r\n"), FAILS),
    "headers without end": (without_end(HEAD, b"X: y\r\n" * 1000), FAILS),
    "trailers without end": (without_end(EMPTY_CHUNKS, b"X: y\r\n" * 1000), FAILS),
    "not HTTP": (breaks_off(b"SSH-2.0-Something\r\n" * 50), FAILS),
    "HTTP 0.9": (breaks_off(b'{"success":true,"message":"ok"}'), FAILS),
    "two lengths": (reply(extra="Content-Length: 3\r\n"), FAILS),
    "a second reply": (breaks_off(reply() + SECOND), WORKS),
    "a negative length": (HEAD + b"Content-Length: -5\r\n\r\n{}", FAILS),
    "a broken chunk": (breaks_off(BROKEN_CHUNK), FAILS),
    "100 without end": (without_end(b"", b"HTTP/1.1 100 Continue\r\n\r\n" * 100), FAILS),
    "204 with a body": (reply(status=204), FAILS),
    "999": (reply(status=999), WORKS),
    "data with a zero byte": (envelope('{"message":"\\u0000"}'), WORKS),
}


@row("replies", REPLIES)
def replies(times):
    growth = []

    def look(process):
        return peak_memory(process), defaults(process.home)

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
            return f"{lines} {took:.0f} s, {before} -> {after} MB {output}"

    seen, is_right = judge(one, list(REPLIES) * times, "replies", 16)
    return f"{seen}; at most {max(growth)} MB more", is_right


WAYS_TO_CUT = ("reset", "close", "reset", "close", "silence")


@row("cut replies")
def cut_replies(times):
    server = Server()

    def one(position):
        cut, then = position
        ended = host("init await user await token await token await", Wire(server, cut, then))
        failed = len(re.findall("^Failed", ended.output, re.M))
        if not is_clean(ended) or ended.outcomes != 4 or failed > 1:
            return brief(ended)

    cuts = [(1 + turn * 3600 // times, WAYS_TO_CUT[turn % 5]) for turn in range(times)]
    return judge(one, cuts, "positions", 16)


def longer_token(*_):
    time.sleep(0.2)
    return envelope('{"userToken":"' + "u" * 500 + '"}')


REFUSAL = reply('{"success":false,"message":"no"}', 401)

# What the server does from then on, and how many device tokens it is given.
REFUSALS = {
    "with a token": ({"token": REFUSAL}, 5),
    "with growing headers": ({"token": REFUSAL, "user/authenticate": longer_token}, 5),
    "on both authentications": ({"authenticate": REFUSAL, "token": REFUSAL}, 5),
    "without tokens": ({"": REFUSAL}, 100),
}


@row("endless 401", REFUSALS)
def endless_401(times):
    figures = {}

    def one(name):
        (script, count), server = REFUSALS[name], Server()
        commands = f"{count}:token sleep pause 20:image await pause image await"
        image = {"HOST_IMAGE": "https://localhost/i"}
        process = start(f"init user await pause {commands}", server, **image)
        go_on(process, lambda _: server.script.update(script))
        began = time.monotonic()
        asked = go_on(process, lambda _: time.monotonic())

        def rest(process):
            took, rounds = time.monotonic() - began, len(server.requests)
            time.sleep(3)  # In which nothing more may arrive.
            return took, rounds, len(server.requests) - rounds, peak_memory(process)

        took, rounds, late, megabytes = go_on(process, rest)
        ended = finish(process)
        sent = sum(r.size for r in server.requests) / 1e6
        waited = [r.time - asked for r in server.requests if r.path == "/i"][19]
        traffic = f"{rounds} requests, {sent:.1f} MB in {took:.0f} s, {late} late"
        rest = f"{megabytes} MB held, images within {waited * 1000:.0f} ms"
        figures[name] = f"{name}: {traffic}, {rest}"
        is_in_time = took <= 45 and late <= count and waited <= 10
        if not is_clean(ended) or ended.outcomes != count + 23 or megabytes > 200 or not is_in_time:
            return brief(ended)

    seen, is_right = judge(one, list(REFUSALS) * times)
    return "; ".join([*figures.values(), seen]), is_right
