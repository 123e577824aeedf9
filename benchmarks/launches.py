"""What a launch costs, and how long a host waits for replies over a slow line."""

import os
import shutil

from disk import BusyDisk, is_disk
from server import TRUST_DIRECTORY

MEMORY = "/dev/shm"


def launches(programs, plan):
    """Readings from main() to the first reply, with the system's trust directory: {name: [...]}."""
    trusted = with_our_authority(programs.server)
    kivo = [*trusted, programs.path("launch-kivo"), "first"]
    curl = [*trusted, programs.path("launch-curl")]
    curl += ["h2", str(programs.server.ports["h2"]), TRUST_DIRECTORY, "1", "1"]
    readings = {}

    def read(name, command, home=None):
        readings.setdefault(name, []).append(programs.reading(command, home, trust=False))

    for _ in range(2 * plan.rounds):
        on_disk = programs.fresh_home(plan.disk)
        in_memory = programs.fresh_home(MEMORY)
        read("bare-curl", curl)
        read("kivo, first launch on tmpfs", kivo, in_memory)
        read("kivo, first launch", kivo, on_disk)
        read("kivo, second launch", kivo, on_disk)
        for home in (on_disk, in_memory):
            shutil.rmtree(home)
    return readings


def with_our_authority(server):
    """Runs a command that sees the system's trust directory with our authority in it."""
    user = [] if os.geteuid() == 0 else ["--map-root-user"]
    bind = f'mount --bind "{server.trust_directory()}" {TRUST_DIRECTORY} && exec "$@"'
    return ["unshare", *user, "--mount", "sh", "-c", bind, "sh"]


def busy_disk(programs, plan):
    """Milliseconds to the first reply beside programs that keep the disk busy, or nothing."""
    if not is_disk(plan.disk):
        return {}
    with BusyDisk(plan.disk):
        return {server: scene(programs, plan, server, "first") for server in ("h2", "slow-h2")}


def round_trips(programs, plan):
    """Milliseconds over the slow line: {(server, scene): {candidate: [one a round]}}."""
    return {
        (server, name): scene(programs, plan, server, name)
        for server in ("slow-h2", "slow-https")
        for name in ("first", "both", "burst", "silence")
    }


def scene(programs, plan, server, name):
    """Milliseconds of one scene, a first launch each time: {candidate: [one a round]}."""
    kivo = [programs.path(f"round-trips-kivo-{server}"), name]
    curl = [programs.path("round-trips-curl"), name, *programs.server.address(server), "1", "5"]
    readings = {"kivo": [], "bare-curl": []}
    for _ in range(plan.rounds):
        home = programs.fresh_home(plan.disk)
        readings["kivo"].append(programs.reading(kivo, home)["ms"])
        readings["bare-curl"].append(programs.reading(curl)["ms"])
        shutil.rmtree(home)
    return readings


def handshakes(programs, plan):
    """Connections that initialise and setUser open together over HTTP/2, one count a round."""
    counts = []
    for _ in range(plan.rounds):
        before = programs.server.accepted()
        programs.reading([programs.path("launch-kivo"), "both"])
        counts.append(programs.server.accepted() - before)
    return counts
