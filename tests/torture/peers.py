"""What a host talks to: a server that says exactly what it is told, and a wire to it that can be
cut, slowed and silenced."""

import collections
import contextlib
import os
import socket
import ssl
import struct
import subprocess
import threading
import time
from types import SimpleNamespace

from harness import Skip, home, place

Request = collections.namedtuple("Request", "method path headers time size")
OK = '{"success":true,"message":"ok","data":{"message":"ok"}}'


def reply(body=OK, status=200, extra=""):
    data = body.encode() if isinstance(body, str) else body
    head = f"HTTP/1.1 {status} X\r\nContent-Type: application/json\r\n"
    return f"{head}Content-Length: {len(data)}\r\n{extra}\r\n".encode() + data


def envelope(data):
    return reply(f'{{"success":true,"message":"ok","data":{data}}}')


def silence(connection):
    """Says nothing until the client goes away."""
    with contextlib.suppress(OSError):
        while connection.recv(4096):
            pass


def hang(_, connection):
    silence(connection)


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def half_close(connection):
    connection.shutdown(socket.SHUT_WR)
    silence(connection)


def in_background(function, *arguments):
    threading.Thread(target=function, args=arguments, daemon=True).start()


class Listener:
    """Gives every connection to `serve`, on a thread of its own."""

    def __init__(self, at="127.0.0.1"):
        family = socket.AF_INET6 if ":" in at else socket.AF_INET
        self.listener = socket.create_server((at, 0), family=family, backlog=256)
        self.port = self.listener.getsockname()[1]
        in_background(self.accept)

    def accept(self):
        while True:
            in_background(self.serve, self.listener.accept()[0])


class Server(Listener):
    """Speaks TLS, plain HTTP and, as the host's proxy, for every name. `script` maps the ends of
    paths to replies: bytes, or a function of the request and the connection that returns bytes, or
    None to have the connection closed."""

    def __init__(self, script=None, cert=None, at="127.0.0.1"):
        self.script = script or {}
        self.requests, self.issued, self.lock = [], 0, threading.Lock()
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(cert or place.cert)
        super().__init__(at)

    def serve(self, plain):
        plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        connection = plain
        with contextlib.suppress(OSError, ValueError, IndexError), plain:
            while True:
                if connection is plain and plain.recv(1, socket.MSG_PEEK) == b"\x16":
                    connection = self.context.wrap_socket(plain, server_side=True)
                request = self.read(connection)
                if request.method == "CONNECT":
                    connection.sendall(b"HTTP/1.1 200 OK\r\n\r\n")
                elif not self.answer(request, connection):
                    break
            connection.close()

    def read(self, connection):
        data = b""
        while b"\r\n\r\n" not in data and (more := connection.recv(65536)):
            data += more
        head, body = data.split(b"\r\n\r\n", 1)  # Raises when the client has gone away.
        first, *lines = head.decode("latin1").split("\r\n")
        headers = {k.lower(): v.strip() for k, v in (line.split(":", 1) for line in lines)}
        while len(body) < int(headers.get("content-length", 0)):
            body += connection.recv(65536)
        method, path, _ = first.split(" ")
        return Request(method, path, headers, time.monotonic(), len(head) + len(body))

    def answer(self, request, connection):
        """Whether the connection stays open."""
        self.requests.append(request)
        ends = [end for end in self.script if request.path.endswith(end)]
        answer = self.script[max(ends, key=len)] if ends else self.usual(request)
        if callable(answer):
            answer = answer(request, connection)
        if answer is not None:
            connection.sendall(answer)
        return answer is not None

    def usual(self, request):
        """Tokens are numbered in the order in which they were issued."""
        with self.lock:
            self.issued += 1
            number = self.issued
        if request.path.endswith("sdk/authenticate"):
            return envelope(f'{{"merchantToken":"m-{number}","sessionId":"s-{number}"}}')
        if request.path.endswith("user/authenticate"):
            return envelope(f'{{"userToken":"u-{number}"}}')
        return reply()


class Wire(Listener):
    """A proxy that hands bytes on, `delay` seconds late and at most `rate` a second; of what the
    server says on the first connection it hands on `cut` bytes, then does what `then` says:
    "reset", "close", "silence"."""

    def __init__(self, server, cut=None, then="reset", delay=0, rate=None, proxy=False):
        self.port_beyond, self.then, self.cuts = server.port, then, iter([cut])
        self.delay, self.rate, self.is_proxy = delay, rate, proxy
        super().__init__()

    def serve(self, here):
        beyond = socket.create_connection(("127.0.0.1", self.port_beyond))
        if self.is_proxy:
            here.recv(65536)
            here.sendall(b"HTTP/1.1 200 OK\r\n\r\n")
        in_background(self.pump, here, beyond, None)
        self.pump(beyond, here, next(self.cuts, None))

    def pump(self, source, target, left):
        with contextlib.suppress(OSError):
            while data := source.recv(2048 if self.rate else 65536):
                time.sleep(self.delay + (len(data) / self.rate if self.rate else 0))
                if left is not None and len(data) >= left:
                    target.sendall(data[:left])
                    return self.end(source, target)
                left = left - len(data) if left is not None else None
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)

    def end(self, source, target):
        if self.then == "silence":
            return silence(source)
        if self.then == "reset":
            reset(target)
        # Wakes the other pump.
        target.shutdown(socket.SHUT_RD if self.then == "reset" else socket.SHUT_RDWR)
        target.close()


NGINX = """daemon off; error_log stderr crit; pid {at}/pid; events {{}}
http {{ access_log off; server {{
    listen 127.0.0.1:{port} ssl http2; ssl_certificate {cert}; ssl_certificate_key {cert};
    keepalive_requests {keepalive};
    location / {{ return 200 '{{"success":true,"message":"ok","data":{{
        "merchantToken":"m-1","sessionId":"s-1","userToken":"u-2","message":"ok"}}}}'; }}
}} }}"""


def nginx(keepalive=1000000, port=0):
    """A foreign peer that speaks HTTP/2 and answers everything with both kinds of token, and so
    many requests a connection."""
    at = home()
    with socket.create_server(("127.0.0.1", port)) as free:
        port = free.getsockname()[1]
    with open(f"{at}/nginx.conf", "w") as conf:
        conf.write(NGINX.format(at=at, port=port, cert=place.cert, keepalive=keepalive))
    command = ["nginx", "-c", f"{at}/nginx.conf", "-p", at]
    process = subprocess.Popen(command, stderr=subprocess.DEVNULL)
    place.children.append(process)
    while process.poll() is None:
        with contextlib.suppress(OSError):
            socket.create_connection(("127.0.0.1", port)).close()
            return SimpleNamespace(port=port, process=process)
        time.sleep(0.02)
    raise Skip("nginx does not start")


class Mute(Listener):
    """Takes connections and says `answer`, if anything, and nothing after that."""

    def __init__(self, answer=b""):
        self.answer = answer
        super().__init__()

    def serve(self, connection):
        connection.recv(4096)
        connection.sendall(self.answer)
        silence(connection)


def black_hole(address=("127.0.0.1", 0)):
    """A port that never takes a connection, as its queue is full."""
    listener = socket.create_server(address, backlog=0)
    place.children += [listener, socket.create_connection(listener.getsockname())]
    return SimpleNamespace(port=listener.getsockname()[1])


def two_addresses():
    """A black hole at one address and a server at another, on one port."""
    server = Server()
    black_hole(("127.0.0.3", server.port))
    return server


def dying(end):
    """Ends each connection while it rests in the pool."""
    server = Server()

    def answer(request, connection):
        connection.sendall(server.usual(request))
        time.sleep(0.02)
        end(connection)

    server.script = {"token": answer}
    return server


def within(file, content):
    """Has a program see another file of /etc, the last of what is returned."""
    source = os.path.join(home(), file)
    with open(source, "w") as out:
        out.write(content)
    os.chmod(source, 0o644)
    if subprocess.run(["unshare", "-m", "true"], capture_output=True).returncode:
        raise Skip("needs the right to mount")
    mount = f'mount --bind "$1" /etc/{file} && shift && exec "$@"'
    return ("unshare", "-m", "sh", "-c", mount, "sh", source)
