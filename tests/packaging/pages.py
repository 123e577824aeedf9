"""Runs the commands that the pages show, in a copy of the repository with a home of its own.

A command is what stands in a block marked `sh`, after `$ ` in another block, or between backticks
if it begins with a compiler or Python. Each is run, or stands in ELSEWHERE with the reason.
usage: pages.py SOURCE_ROOT BUILD_DIRECTORY
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

# Commands that are not run here, and why.
ELSEWHERE = {
    "scripts/demo": "builds everything once more",
    "scripts/test": "runs this test",
    "cmake --preset dev -DKIVO_WARNINGS_AS_ERRORS=ON && cmake --build --preset dev": "this build",
    "ctest --preset dev": "runs this test",
    "ctest --preset dev -R InterceptorTest": "runs beside this test",
    "cmake --preset dev -B build/debug -DCMAKE_BUILD_TYPE=Debug": "a third build",
    "cmake --build build/debug --target kivo-host": "a third build",
    'SSL_CERT_FILE="$(build/dev/backend/kivo-dev ca path)" '
    "gdb build/debug/examples/kivo-host": "needs a terminal",
    "sudo apt install ./build/package/libkivo1_*.deb ./build/package/libkivo-dev_*.deb "
    "./build/package/kivo-tools_*.deb": "scripts/package --try installs them",
    "side-by-side.sh user/unset:401:times=1 user/update-device-token:hang '*:delay=500ms' "
    "-- ./app": "ci.sh runs it",
    "curl -sS -o /dev/null https://localhost:8443/": "needs a backend at that very port",
}
IN_HOST = ("g++ ", "cc ", "python3 ", "rustc ", "cmake -S . -B build -D")
INLINE = re.compile(r"`((?:g\+\+|cc|python3|rustc) [^`]*)`")


def blocks(page):
    """The page's fenced blocks: the language and the lines of each."""
    for match in re.finditer(r"^```(\w*)\n(.*?)^```$", page, re.DOTALL | re.MULTILINE):
        yield match[1], match[2].replace("\\\n", "").splitlines()


def commands(page):
    for language, lines in blocks(page):
        if language == "sh":
            yield from (re.sub(r"\s+", " ", re.sub(r"\s+#.*", "", line)).strip() for line in lines)
        else:
            yield from (line[2:] for line in lines if line.startswith("$ "))
    yield from INLINE.findall(re.sub(r"^```.*?^```$", "", page, flags=re.DOTALL | re.MULTILINE))


class Sandbox:
    """A copy of the repository, a folder with the pages' hosts, and a home."""

    def __init__(self, root, build, folder):
        self.project, self.host = folder / "kivo", folder / "host"
        for path in (self.host, folder / "home", folder / "bin"):
            path.mkdir()
        self.copy_project(root, build)
        self.copy_hosts(root)
        # Nothing is installed: apt says whether it could be.
        sudo = folder / "bin/sudo"
        sudo.write_text('#!/bin/sh\nshift\nexec apt-get --simulate "$@"\n')
        sudo.chmod(0o755)
        (folder / "bin/kivo-dev").symlink_to(build / "backend/kivo-dev")
        library = f"{folder}/home/kivo/lib"
        self.environment = {
            "HOME": f"{folder}/home",
            "PATH": f"{folder}/bin:{os.environ['PATH']}",
            "PKG_CONFIG_PATH": f"{library}/pkgconfig",
            "LIBRARY_PATH": library,
            "LD_LIBRARY_PATH": library,
            "PYTHONDONTWRITEBYTECODE": "1",
        }
        inherited = ("CMAKE_", "CCACHE_")
        self.environment |= {k: v for k, v in os.environ.items() if k.startswith(inherited)}
        # Rust is optional, and rustup's compiler works only with its user's home.
        command = ["bash", "-c", "rustc --version"]
        asked = subprocess.run(command, env=self.environment, capture_output=True)
        self.has_rust = asked.returncode == 0

    def copy_project(self, root, build):
        listed = "git ls-files --cached --others --exclude-standard --deduplicate -z"
        copy = f"{listed} | tar --create --null --files-from=- | tar --extract --directory"
        self.project.mkdir()
        subprocess.run(f"{copy} '{self.project}'", shell=True, check=True, cwd=root)
        (self.project / "build").mkdir()
        (self.project / "build/dev").symlink_to(build)

    def copy_hosts(self, root):
        readme = (root / "README.md").read_text()
        for language, name in (("cpp", "main.cpp"), ("cmake", "CMakeLists.txt")):
            lines = dict(blocks(readme))[language]
            (self.host / name).write_text("\n".join(lines) + "\n")
        for example in ("c/host.c", "python/kivo.py", "python/host.py", "rust/host.rs"):
            shutil.copy(root / "examples" / example, self.host)

    def run(self, command):
        """Runs it. A backend that runs until it is interrupted is interrupted once it is ready."""
        in_host = command.startswith(IN_HOST)
        line = command
        if command.endswith(" serve"):  # On a port of its own, since tests run beside each other.
            line = f"exec {command} --port 0"
        elif "host" in command and in_host:  # Against a backend that checks what it says.
            line = f"kivo-dev run --strict -- sh -c '{command}'"
        process = subprocess.Popen(
            ["bash", "-euo", "pipefail", "-c", line],
            cwd=self.host if in_host else self.project,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        said = ""
        for part in process.stdout:
            said += part
            if "is ready; Ctrl-C stops it" in part:
                process.send_signal(signal.SIGINT)
        if process.wait() != 0:
            sys.exit(f"FAILED with {process.returncode}: {line}\n{said}")
        if command.startswith("cmake -S . -B build -D"):
            shutil.copy(self.host / "build/app", self.project / "app")


def main():
    root, build = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    pages = [root / "README.md", root / "CONTRIBUTING.md", *sorted((root / "docs").glob("*.md"))]
    # In this order, since the README's commands install what others need.
    shown = [command for page in pages for command in commands(page.read_text()) if command]
    stale = sorted(set(ELSEWHERE) - set(shown))
    if stale:
        sys.exit(f"FAILED: no page shows these any more: {stale}")
    with tempfile.TemporaryDirectory() as folder:
        sandbox = Sandbox(root, build, pathlib.Path(folder))
        for command in dict.fromkeys(shown):
            is_run = command not in ELSEWHERE and (
                sandbox.has_rust or not command.startswith("rustc ")
            )
            print("run:" if is_run else "not run:", command, flush=True)
            if is_run:
                sandbox.run(command)


main()
