"""Servers that never stop sending what their client's libraries read and its program never sees."""

import contextlib
import ctypes
import hmac
import os
import socket
import ssl
import struct

from harness import home, place
from peers import Listener


def with_length(content, size):
    return len(content).to_bytes(size, "big") + content


class EmptyFrames(Listener):
    """Empty pieces of an HTTP/2 body."""

    def serve(self, plain):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(place.cert)
        context.set_alpn_protocols(["h2"])
        with contextlib.suppress(OSError):
            connection = context.wrap_socket(plain, server_side=True)
            connection.recv(65536)
            connection.sendall(frame(4, 0) + frame(1, 1, b"\x88", 4))  # Settings, 200.
            while True:
                connection.sendall(frame(0, 1) * 1500)


def frame(kind, stream, payload=b"", flags=0):
    return struct.pack(">I", len(payload))[1:] + struct.pack(">BBI", kind, flags, stream) + payload


class Tickets(Listener):
    """Tickets to resume the TLS session with, 900 to a record."""

    def serve(self, plain):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(place.cert)
        context.keylog_filename = os.path.join(home(), "keys")
        context.num_tickets = 0
        lifetime_and_age, nothing = bytes(8), with_length(b"", 1)
        ticket = lifetime_and_age + nothing + with_length(b"t", 2) + with_length(b"", 2)
        tickets = (b"\x04" + with_length(ticket, 3)) * 900
        with contextlib.suppress(OSError):
            connection = context.wrap_socket(plain, server_side=True)
            records = Records(context.keylog_filename)
            with socket.socket(fileno=connection.detach()) as plain:
                while True:
                    plain.sendall(records.seal(tickets, kind=22))


class Records:
    """Seals what a server says in TLS 1.3, with the key that Python's own connection has noted;
    Python has no means to say anything but data."""

    def __init__(self, keys):
        with open(keys) as lines:
            secrets = dict(line.split()[::2] for line in lines if line[0] != "#")
        secret = bytes.fromhex(secrets["SERVER_TRAFFIC_SECRET_0"])
        self.nonce, self.sealed = expand(secret, b"iv", 12), 0
        self.crypto = ctypes.CDLL("libcrypto.so.3")
        self.crypto.EVP_CIPHER_CTX_new.restype = ctypes.c_void_p
        self.crypto.EVP_aes_256_gcm.restype = ctypes.c_void_p
        self.context = ctypes.c_void_p(self.crypto.EVP_CIPHER_CTX_new())
        cipher = ctypes.c_void_p(self.crypto.EVP_aes_256_gcm())
        self.crypto.EVP_EncryptInit_ex(self.context, cipher, None, expand(secret, b"key", 32), None)

    def seal(self, content, kind):
        content, tag = content + bytes([kind]), ctypes.create_string_buffer(16)
        sealed, size = ctypes.create_string_buffer(len(content)), ctypes.byref(ctypes.c_int())
        head = b"\x17\x03\x03" + struct.pack(">H", len(content) + 16)
        nonce = (int.from_bytes(self.nonce, "big") ^ self.sealed).to_bytes(12, "big")
        self.sealed += 1
        self.crypto.EVP_EncryptInit_ex(self.context, None, None, None, nonce)
        self.crypto.EVP_EncryptUpdate(self.context, None, size, head, len(head))
        self.crypto.EVP_EncryptUpdate(self.context, sealed, size, content, len(content))
        self.crypto.EVP_EncryptFinal_ex(self.context, None, size)
        get_tag = 0x10
        self.crypto.EVP_CIPHER_CTX_ctrl(self.context, get_tag, 16, tag)
        return head + sealed.raw + tag.raw


def expand(secret, label, size):
    """HKDF-Expand-Label for AES-256, whose hash is longer than all that is asked for."""
    info = struct.pack(">H", size) + with_length(b"tls13 " + label, 1) + b"\0\1"
    return hmac.digest(secret, info, "sha384")[:size]
