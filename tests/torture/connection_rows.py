"""What a network may do, and what much work comes to."""

import functools
import os
import re
import socket
import time
from types import SimpleNamespace

from floods import EmptyFrames, Tickets
from harness import EVERYTHING, Skip, brief, ended_well, finish, go_on, home, host
from harness import is_clean, judge, peak_memory, place, require, row, start
from peers import Mute, Server, Wire, black_hole, dying, half_close, hang, nginx, reset
from peers import two_addresses, within

BOTH, IMAGE = "init user await", "init image await"
STEP = " fail" + " token await" * 20  # On the connection that is there.
RESTING = BOTH + " token await sleep sleep sleep" * 9
BAD, GOOD = "Failed to setUser: ", "setUser successfully: "
TOKEN_KEPT = "updateDeviceToken successfully: "
HIT = "Successfully hit the image"
TWO_HOSTS = "127.0.0.3 two.example\n127.0.0.1 two.example\n"


def silenced_http2():
    return Wire(nginx(), 9000, "silence", proxy=True)


def clock_steps(seconds):
    return lambda: {"shim": {"CLOCK_STEP": seconds}}


def untrusted():
    return {"SSL_CERT_FILE": place.wrong_name}


def image_at_two_addresses():
    return {"image": "https://two.example:{}/i", "around": within("hosts", TWO_HOSTS)}


def fifo(name):
    """The name of a pipe in a folder of its own."""
    os.mkfifo(path := os.path.join(home(), name))
    return path


def pipe_among_certificates():
    directory = os.path.dirname(fifo("0123abcd.0"))
    return {"SSL_CERT_FILE": None, "SSL_CERT_DIR": directory}


TAKEN = b"HTTP/1.1 200 OK\r\n\r\n"  # To CONNECT.
REFUSED = b"HTTP/1.1 407 No\r\nContent-Length: 0\r\n\r\n"
FEW_DESCRIPTORS = ("sh", "-c", 'ulimit -n 8; exec "$@"', "sh")


# What takes the server's place, how the host is started, its commands, a line that it must print;
# where that is GOOD, no operation may fail.
CONNECTIONS = {
    "refused": (lambda: SimpleNamespace(port=1), dict, BOTH, BAD),
    "a black hole": (black_hole, dict, BOTH, BAD),
    "a hung handshake": (lambda: Mute(TAKEN), dict, BOTH, BAD),
    "a silent proxy": (Mute, dict, BOTH, BAD),
    "a proxy that says no": (lambda: Mute(REFUSED), dict, BOTH, BAD),
    "a proxy that talks nonsense": (lambda: Mute(bytes(range(256)) * 9), dict, BOTH, BAD),
    "no TLS": (lambda: Mute(TAKEN + b"no handshake " * 99), dict, BOTH, BAD),
    "a wrong name": (lambda: Server(cert=place.wrong_name), untrusted, BOTH, BAD),
    "an unknown authority": (Server, untrusted, BOTH, BAD),
    "an expired certificate": (Server, clock_steps(40 * 86400), "fail " + BOTH, BAD),
    "a clock put forward": (Server, clock_steps(3600), BOTH + STEP, GOOD),
    "a clock put back": (Server, clock_steps(-3600), BOTH + STEP, GOOD),
    "no trust store": (Server, lambda: {"SSL_CERT_FILE": "/nowhere"}, BOTH, BAD),
    "an empty trust store": (Server, lambda: {"SSL_CERT_FILE": "/dev/null"}, BOTH, BAD),
    "a pipe as trust store": (Server, lambda: {"SSL_CERT_FILE": fifo("pem")}, BOTH, BAD),
    "a pipe in the trust store": (Server, pipe_among_certificates, BOTH, BAD),
    "closed after each reply": (lambda: dying(lambda _: None), dict, RESTING, GOOD),
    "a pooled connection that died": (lambda: dying(reset), dict, RESTING, GOOD),
    "one half closed": (lambda: dying(half_close), dict, RESTING, GOOD),
    "1 Mbit/s, 400 ms": (lambda: Wire(Server(), delay=0.2, rate=125000), dict, BOTH, GOOD),
    "8 descriptors": (Server, lambda: {"around": FEW_DESCRIPTORS}, BOTH, ""),
    "IPv6 only": (lambda: Server(at="::1"), lambda: {"image": "https://[::1]:{}/i"}, IMAGE, HIT),
    "a dead first address": (two_addresses, image_at_two_addresses, IMAGE, HIT),
    "HTTP/2 that falls silent": (silenced_http2, dict, BOTH + " 40:token await" * 2, TOKEN_KEPT),
}


def outcomes_due(commands):
    """A word is an operation, N:word N of them, but for those that only pass the time."""
    operations = [word for word in commands.split() if word not in ("await", "fail", "sleep")]
    return sum(int(word.split(":")[0]) if ":" in word else 1 for word in operations)


@row("connections", CONNECTIONS)
def connections(times):
    took = {}

    def one(name):
        make_peer, make_options, commands, expected = CONNECTIONS[name]
        peer, options = make_peer(), dict(make_options())
        if "image" in options:
            image = options.pop("image").format(peer.port)
            options |= {"HOST_IMAGE": image, "no_proxy": "*"}
        ended = host(commands, peer, **options)
        took[name] = ended.seconds
        is_right = expected in ended.output and not (expected == GOOD and "Failed" in ended.output)
        if not is_clean(ended) or ended.outcomes != outcomes_due(commands) or not is_right:
            return f"{brief(ended)} {ended.output[-600:]}"

    seen, is_right = judge(one, list(CONNECTIONS) * times, at_once=18)
    slowest = max(took, key=took.get)
    return f"{seen}; slowest: {slowest}, {took[slowest]:.0f} s", is_right


def requests_take(address, around):
    """How long all other requests take while 5 images wait for the address, in milliseconds."""
    server = Server()
    variables = {"HOST_IMAGE": address, "no_proxy": "nowhere.example"}
    ended = host("init user await 5:image 20:token await", server, around=around, **variables)
    require(is_clean(ended) and ended.outcomes == 27, brief(ended), ended.output[-500:])
    moments = [r.time for r in server.requests if r.path.endswith("token")]
    return round((moments[-1] - moments[0]) * 1000)


@functools.cache
def within_dead_dns():
    """Has a program ask a name server that never answers."""
    around = within("resolv.conf", "nameserver 127.0.0.9\n")
    silent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    place.children.append(silent)
    silent.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)  # Two rows may come at once.
    silent.bind(("127.0.0.9", 53))
    return around


@row("dead DNS")
def dead_dns(times):
    around = within_dead_dns()
    dead = sorted(requests_take("http://nowhere.example/i", around) for _ in range(times))
    alive = sorted(requests_take("http://127.0.0.1:1/i", around) for _ in range(times))
    seen = f"20 requests within {dead} ms, {alive} ms where the name server is not asked"
    # The slower runs measure the machine, too.
    return f"{seen}; the images failed at last", dead[0] <= alive[0] + 1000


def a_thousand_hosts():
    names = " ".join(f"n{i}.test" for i in range(1, 1101))
    return within("hosts", "".join(f"127.0.0.1 {name}\n" for name in names.split()))


# Where the images are, how the host is started, its commands.
UNANSWERED = {
    "1,100 names": ("nowhere.test/i", within_dead_dns, "1100:image-elsewhere"),
    "1,100 hosts": ("test:{}/i", a_thousand_hosts, "1100:image-elsewhere"),
    "the backend's host": ("https://localhost:8443/i", tuple, "6:image"),
}


@row("images without an answer", UNANSWERED)
def unanswered_images(times):
    seen, is_right = [], True
    for name, (images, around, commands) in UNANSWERED.items():
        server, variables = Server({"/i": hang}), {"no_proxy": "test"}
        variables["HOST_IMAGE"] = images.format(Mute().port)
        commands = f"init user await {commands} 5:sleep pause 20:token 20:sleep pause exit"
        process = start(commands, server, around=around(), **variables)
        began = go_on(process, lambda _: time.monotonic())
        _, descriptors, threads = go_on(process, size_of)
        ended = finish(process)
        calls = [r.time - began for r in server.requests if r.path.endswith("token")]
        last = f"{max(calls, default=0) * 1000:.0f} ms"
        seen.append(f"{name}: {threads} threads, {descriptors} descriptors, calls within {last}")
        is_modest = threads <= 40 and descriptors <= 64 and len(calls) == 20
        is_right = is_right and is_modest and is_clean(ended)
    return "; ".join(seen), is_right


@row("a name that moves")
def moved(times):
    server, around = Server(), within("hosts", "127.0.0.3 two.example\n")
    variables = {"HOST_IMAGE": f"https://two.example:{server.port}/i", "no_proxy": "*"}
    process = start("init image await pause image await", around=around, **variables)

    def move(_):
        with open(around[-1], "w") as hosts:
            hosts.write("127.0.0.1 two.example\n")

    go_on(process, move)
    output = finish(process).output
    return f"{output.count(HIT)} of 1 hits", output.count(HIT) == 1


FLOODS = {"empty HTTP/2 frames": EmptyFrames, "TLS tickets": Tickets}


@row("a flooding server", FLOODS)
def flood(times):
    seen, is_right = [], True
    for name, make_peer in FLOODS.items():
        server, image = Server(), f"https://127.0.0.1:{make_peer().port}/i"
        variables = {"HOST_IMAGE": image, "no_proxy": "127.0.0.1"}
        ended = host("init user await image 20:token await", server, **variables)
        last = server.requests[-1].time - server.requests[0].time
        seen.append(f"{name}: {ended.outcomes} outcomes, the last call after {last:.1f} s")
        is_right = is_right and is_clean(ended) and ended.outcomes == 23 and last < 15
    return "; ".join(seen), is_right


@row("connections that end")
def connections_that_end(times):
    seen, is_right = [], True
    for limit, through_proxy in (100, False), (1000, False), (10, True):
        server = nginx(limit, 0 if through_proxy else 8443)  # Where the development backend is.
        proxy, no_proxy = (Wire(server, proxy=True), "") if through_proxy else (None, "*")
        commands = "init user await " + "100:token await " * (times // 100)
        ended = host(commands, proxy, no_proxy=no_proxy, patience=3600)
        lost = times - ended.output.count(TOKEN_KEPT)
        how = "each, through a proxy" if through_proxy else "each"
        seen.append(f"after {limit} requests {how}: {lost} of {times} lost")
        is_right = is_right and is_clean(ended) and lost == 0
        server.process.terminate()
        server.process.wait()
    return "; ".join(seen), is_right


@row("threads")
def threads(seconds):
    if not place.tsan:
        raise Skip("no build under ThreadSanitizer was given")
    commands = "init user await " + "storm await " * seconds
    ended = host(commands, Server(), build=place.tsan, patience=3600)
    asked = 2 + sum(map(int, re.findall(r"^asked (\d+)$", ended.output, re.M)))
    is_right = is_clean(ended) and "not idle" not in ended.output and ended.outcomes == asked
    return f"{ended.outcomes} outcomes of {asked} {ended.errors[:800]}", is_right


@row("soak")
def soak(times):
    if not place.asan:
        raise Skip("no build under AddressSanitizer was given")
    commands = "init user await " + "100:token await " * (times // 100) + "everything await"
    ended = host(commands, Wire(nginx(), proxy=True), build=place.asan, patience=3600)
    return ended_well(ended, times + 2 + EVERYTHING - 1)


def size_of(process):
    """Memory in MB, descriptors, threads."""
    descriptors, threads = (len(os.listdir(f"/proc/{process.pid}/{of}")) for of in ("fd", "task"))
    return peak_memory(process), descriptors, threads


@row("flat")
def flat(times):
    few, many = (f"{'500:token await ' * (count // 500)}pause " for count in (times // 10, times))
    process = start(f"init user await {few}{many}", Wire(nginx(), proxy=True))
    before, after = go_on(process, size_of), go_on(process, size_of)
    _, is_right = ended_well(finish(process), 2 + times // 10 + times)
    is_flat = after[0] <= before[0] + 4 and after[1] <= before[1] + 2 and after[2] == before[2]
    return f"MB, descriptors, threads {before} -> {after}", is_right and is_flat
