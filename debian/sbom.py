#!/usr/bin/env python3
"""Prints what a package of Kivo needs, as CycloneDX: the libraries that its binary loads, and those
whose headers were compiled into it, by Debian package and version. Reads the build, not a list.
usage: debian/sbom.py libkivo1|kivo-tools BUILD_DIRECTORY"""

import json
import os
import re
import subprocess
import sys

# Where the compiler and the C library come from: without them nothing is compiled.
TOOLCHAIN = re.compile(r"^(libc6|libstdc\+\+|libgcc|linux-libc|libc\+\+|libclang|clang)\S*-dev")

# Package: its binary, and the folders of the build whose object files are in it.
BINARIES = {
    "libkivo1": ("kivo/libkivo.so", ["kivo/"]),
    "kivo-tools": ("backend/kivo-dev", ["backend/"]),
}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def owners(paths):
    """The packages that installed the files; a path may lead through a symbolic link."""
    places = sorted({place for path in paths for place in (path, os.path.realpath(path))})
    found = subprocess.run(["dpkg", "-S", *places], capture_output=True, text=True).stdout
    return {name for line in found.splitlines() for name in line.split(": ")[0].split(", ")}


def loaded(binary):
    """The libraries that the binary itself names, as the dynamic linker finds them."""
    needed = set(re.findall(r"NEEDED\s+(\S+)", output("objdump", "-p", binary)))
    found = re.findall(r"(\S+) => (/\S+)", output("ldd", binary))
    return owners(path for name, path in found if name in needed)


def compiled_in(build, folders):
    """The headers that Ninja saw the object files include."""
    headers, is_ours = set(), False
    for line in output("ninja", "-C", build, "-t", "deps").splitlines():
        if not line.startswith(" "):
            is_ours = any(line.startswith(folder) for folder in folders)
        elif is_ours and line.strip().startswith("/usr/include/"):
            headers.add(line.strip())
    return {name for name in owners(headers) if not TOOLCHAIN.match(name)}


def component(package, how):
    name, version = output("dpkg-query", "-W", "-f", "${Package} ${Version}", package).split()
    reference = f"pkg:deb/debian/{name}@{version}"
    return {
        "type": "library",
        "bom-ref": reference,
        "name": name,
        "version": version,
        "purl": reference,
        "properties": [{"name": "kivo:use", "value": how}],
    }


def version():
    with open(os.path.join(os.path.dirname(__file__), "../include/kivo/Version.h")) as header:
        return ".".join(re.findall(r"#define KIVO_VERSION_[A-Z]+ (\d+)", header.read()))


def bill(package, build):
    binary, folders = BINARIES[package]
    libraries = loaded(os.path.join(build, binary))
    headers = compiled_in(build, folders)
    parts = [component(name, "loaded") for name in sorted(libraries)]
    parts += [component(name, "headers compiled in") for name in sorted(headers)]
    itself = f"pkg:deb/{package}@{version()}"
    return {
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        "version": 1,
        "metadata": {
            "component": {
                "type": "library" if package.startswith("lib") else "application",
                "bom-ref": itself,
                "name": package,
                "version": version(),
            }
        },
        "components": parts,
        "dependencies": [{"ref": itself, "dependsOn": [part["bom-ref"] for part in parts]}],
    }


if len(sys.argv) != 3 or sys.argv[1] not in BINARIES:
    sys.exit(__doc__)
json.dump(bill(*sys.argv[1:]), sys.stdout, indent=2)
print()
