"""The server that the candidates call: nginx on loopback with a certificate made on the spot."""

import os
import pathlib
import signal
import socket
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
        self.ports = {"http": port, "https": port + 1, "h2": port + 2}

    def __enter__(self):
        for port in self.ports.values():
            self._refuse_taken(port)
        self._make_certificates()
        names = {"STATE": self.state, "AFFINITY": bin(1 << self.core)[2:]}
        names.update({scheme.upper(): port for scheme, port in self.ports.items()})
        template = string.Template((FOLDER / "nginx.conf.in").read_text())
        (self.state / "nginx.conf").write_text(template.safe_substitute(names))
        self.process = subprocess.Popen(["nginx", "-p", self.state, "-c", self.state / "nginx.conf"])
        self._await_start()
        return self

    def __exit__(self, *_):
        self.proceed()
        self.process.terminate()
        self.process.wait()

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
            digest = subprocess.run(["openssl", "x509", "-hash", "-noout", "-in", self.ca], check=True,
                                    capture_output=True, text=True).stdout.strip()
            (directory / f"{digest}.0").write_bytes(self.ca.read_bytes())
        return directory

    def _signal_workers(self, number):
        children = f"/proc/{self.process.pid}/task/{self.process.pid}/children"
        for child in pathlib.Path(children).read_text().split():
            os.kill(int(child), number)

    @staticmethod
    def _refuse_taken(port):
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                raise SystemExit(f"port {port} is taken; choose others: KIVO_BENCHMARK_PORT=28080 scripts/bench")

    def _make_certificates(self):
        def openssl(*arguments):
            subprocess.run(["openssl", *arguments], cwd=self.state, check=True, capture_output=True)

        new_key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]
        openssl("req", "-x509", *new_key, "-days", "2", "-subj", "/CN=Kivo benchmark authority",
                "-keyout", "ca.key", "-out", "ca.pem")
        openssl("req", *new_key, "-subj", "/CN=localhost", "-keyout", "server.key", "-out", "server.csr")
        (self.state / "names").write_text("subjectAltName=DNS:localhost\n")
        openssl("x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
                "-days", "2", "-extfile", "names", "-out", "server.pem")

    def _await_start(self):
        for _ in range(100):
            if self.process.poll() is not None:
                raise SystemExit((self.state / "error.log").read_text() or "nginx did not start")
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return
            time.sleep(0.05)
        raise SystemExit("nginx did not start")
