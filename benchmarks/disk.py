"""A disk that other programs keep busy."""

import os
import pathlib
import subprocess
import tempfile
import threading

WRITERS = 4
CHUNK = bytes(4 << 20)
CHUNKS = 16


def is_disk(folder):
    """Whether what is written to the folder goes to a disk and not to memory."""
    command = ["stat", "--file-system", "--format=%T", folder]
    kind = subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()
    return kind not in ("tmpfs", "ramfs", "overlayfs")


class BusyDisk:
    """Writes and flushes files in the folder without a pause, on threads of its own."""

    def __init__(self, folder):
        self.folder = tempfile.TemporaryDirectory(prefix="busy-", dir=folder)
        self.ending = threading.Event()
        self.threads = [
            threading.Thread(target=self._write, args=(number,)) for number in range(WRITERS)
        ]

    def __enter__(self):
        for thread in self.threads:
            thread.start()
        return self

    def __exit__(self, *_):
        self.ending.set()
        for thread in self.threads:
            thread.join()
        self.folder.cleanup()

    def _write(self, number):
        with open(pathlib.Path(self.folder.name) / str(number), "wb", buffering=0) as file:
            while not self.ending.is_set():
                file.write(CHUNK)
                os.fsync(file.fileno())
                if file.tell() >= CHUNKS * len(CHUNK):
                    file.seek(0)
