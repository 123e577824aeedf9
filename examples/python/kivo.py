"""Kivo for Python, over its C interface.

    with Kivo("com.example.app", "my-api-key", on_line=print) as kivo:
        kivo.set_user(email="ana@example.com")
        kivo.wait(60)
"""

import atexit
import ctypes
import os
import threading


def _texts(*values):
    return [None if value is None else str(value).encode() for value in values]


class Kivo:
    """The one plugin of this process. Methods return at once and may be called on any thread."""

    def __init__(self, identifier, api_key, production=False, on_line=None, library="libkivo.so.1"):
        self._kivo = ctypes.CDLL(library)
        self._kivo.kivo_version.restype = ctypes.c_char_p
        self.version = self._kivo.kivo_version().decode()
        self._reader = self._deliver_lines(on_line) if on_line else None
        self._kivo.kivo_set_bundle_identifier(*_texts(identifier))
        self._kivo.kivo_initialise.restype = ctypes.c_bool
        if not self._kivo.kivo_initialise(*_texts(api_key), ctypes.c_bool(production)):
            raise RuntimeError("Kivo could not be initialised")

    def _deliver_lines(self, on_line):
        """Through a pipe: no thread of Kivo's ever runs Python, so Python may end at any time."""
        read_end, write_end = os.pipe()
        self._kivo.kivo_set_output_descriptor(write_end)
        os.close(write_end)

        def read():
            with open(read_end, encoding="utf-8", errors="replace") as lines:
                for line in lines:
                    on_line(line.rstrip("\n"))

        reader = threading.Thread(target=read, name="kivo-lines", daemon=True)
        reader.start()
        atexit.register(self.close)
        return reader

    def set_user(self, country=None, phone=None, email=None, name=None):
        self._kivo.kivo_set_user(*_texts(country, phone, email, name))

    def update_device_token(self, token):
        self._kivo.kivo_update_device_token(*_texts(token))

    def set_notification_permission(self, granted):
        self._kivo.kivo_set_notification_permission(ctypes.c_bool(granted))

    def on_message_received(self, payload):
        """`payload` holds texts: {"notification": {"image": "https://…"}}."""
        texts = [
            _texts(at, key, text) for at, part in payload.items() for key, text in part.items()
        ]
        entries = (ctypes.c_char_p * 3 * len(texts))(*map(tuple, texts))
        self._kivo.kivo_on_message_received(entries, ctypes.c_size_t(len(texts)))

    def unset_user(self):
        self._kivo.kivo_unset_user()

    def wait(self, seconds):
        """Blocks until nothing is under way; returns whether that state was reached in time."""
        self._kivo.kivo_wait_until_idle.restype = ctypes.c_bool
        return self._kivo.kivo_wait_until_idle(int(seconds * 1000))

    def close(self):
        """Hands over the lines that are on their way; later ones go to standard output."""
        self._kivo.kivo_set_output_descriptor(-1)
        if self._reader:
            self._reader.join()

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.wait(60)
        self.close()
