"""The server that the candidates call: nginx on loopback with a certificate made on the spot."""

import os
import pathlib
import signal
import socket
import ssl
import string
import subprocess
import time
import urllib.request

FOLDER = pathlib.Path(__file__).parent
TRUST_DIRECTORY = "/etc/ssl/certs"


class Server:
    def __init__(self, state, port, core):
        self.state, self.port, self.core = pathlib.Path(state), port, core
        self.ca = self.state / "ca.pem"
        names = ("http", "https", "h2", "slow-https", "slow-h2")
        self.ports = {name: port + place for place, name in enumerate(names)}

    def __enter__(self):
        for port in self.ports.values():
            self._refuse_taken(port)
        self._make_certificates()
        names = {"STATE": self.state, "AFFINITY": bin(1 << self.core)[2:]}
        names.update({scheme.upper(): self.ports[scheme] for scheme in ("http", "https", "h2")})
        template = string.Template((FOLDER / "nginx.conf.in").read_text())
        (self.state / "nginx.conf").write_text(template.safe_substitute(names))
        self.process = subprocess.Popen(
            ["nginx", "-p", self.state, "-c", self.state / "nginx.conf"]
        )
        try:
            self._await_start()
            for scheme in ("https", "h2"):
                self._require_newest_tls(scheme)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        self.proceed()
        self.process.terminate()
        self.process.wait()

    def address(self, name):
        """The first three arguments of a load: scheme, port and authority."""
        return [name.removeprefix("slow-"), str(self.ports[name]), str(self.ca)]

    def slow_ports(self):
        """Which port leads to which over the slow line."""
        return {self.ports[f"slow-{scheme}"]: self.ports[scheme] for scheme in ("https", "h2")}

    def accepted(self):
        """How many connections it has accepted, this question's own left out."""
        with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/status", timeout=5) as reply:
            self.questions = getattr(self, "questions", 0) + 1
            return int(reply.read().split(b"\n")[2].split()[0]) - self.questions

    def halt(self):
        self._signal_workers(signal.SIGSTOP)

    def proceed(self):
        self._signal_workers(signal.SIGCONT)

    def trust_directory(self):
        """The system's trust directory and our authority, as one directory."""
        directory = self.state / "certs"
        if not directory.exists():
            subprocess.run(["cp", "-a", "-L", TRUST_DIRECTORY, directory], check=True)
            (directory / "kivo-benchmark.pem").write_bytes(self.ca.read_bytes())
            digest = self._openssl("x509 -hash -noout -in ca.pem")
            (directory / f"{digest}.0").write_bytes(self.ca.read_bytes())
        return directory

    def _signal_workers(self, number):
        if self.process.poll() is not None:
            return
        children = f"/proc/{self.process.pid}/task/{self.process.pid}/children"
        for child in pathlib.Path(children).read_text().split():
            os.kill(int(child), number)

    def _require_newest_tls(self, scheme):
        """Nothing is measured unless a handshake is TLS 1.3 and an older one is refused."""
        version = self._handshake(scheme, ssl.TLSVersion.TLSv1_3)
        if version != "TLSv1.3":
            raise SystemExit(f"the {scheme} server speaks {version} and not TLS 1.3")
        try:
            older = self._handshake(scheme, ssl.TLSVersion.TLSv1_2)
        except ssl.SSLError:
            return
        raise SystemExit(f"the {scheme} server speaks {older} too, so a candidate might")

    def _handshake(self, scheme, newest):
        context = ssl.create_default_context(cafile=self.ca)
        context.maximum_version = newest
        with socket.create_connection(("localhost", self.ports[scheme]), timeout=5) as plain:
            with context.wrap_socket(plain, server_hostname="localhost") as encrypted:
                return encrypted.version()

    @staticmethod
    def _refuse_taken(port):
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                raise SystemExit(
                    f"port {port} is taken; choose others: KIVO_BENCHMARK_PORT=28080 scripts/bench"
                )

    def _make_certificates(self):
        new_key = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
        authority = "-subj /CN=Kivo-benchmark-authority -keyout ca.key -out ca.pem"
        self._openssl(f"req -x509 {new_key} -days 2 {authority}")
        self._openssl(f"req {new_key} -subj /CN=localhost -keyout server.key -out server.csr")
        (self.state / "names").write_text("subjectAltName=DNS:localhost\n")
        signing = "-CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile names"
        self._openssl(f"x509 -req -in server.csr {signing} -out server.pem")

    def _openssl(self, arguments):
        command = ["openssl", *arguments.split()]
        done = subprocess.run(command, cwd=self.state, check=True, capture_output=True, text=True)
        return done.stdout.strip()

    def _await_start(self):
        for _ in range(100):
            if self.process.poll() is not None:
                raise SystemExit((self.state / "error.log").read_text() or "nginx did not start")
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            time.sleep(0.05)
        raise SystemExit("nginx did not start")
