#!/usr/bin/env python3
"""Writes chunked request bodies as Python's http.client sends them, for the decoder tests.

Each body is captured from a request made over a fake socket, and saved without its head as
python_<name>.bin. Run once from this folder; the outputs are committed beside the script.
"""
import http.client
import io
import random


class CaptureSocket:
    def __init__(self):
        self.data = bytearray()

    def sendall(self, data):
        self.data += data

    def makefile(self, *args, **kwargs):
        return io.BytesIO()

    def close(self):
        pass


def body_of(payload):
    connection = http.client.HTTPConnection("example.test")
    connection.sock = CaptureSocket()
    connection.request("POST", "/upload", body=payload, encode_chunked=True,
                       headers={"Transfer-Encoding": "chunked"})
    wire = bytes(connection.sock.data)
    return wire[wire.index(b"\r\n\r\n") + 4:]


def main():
    rng = random.Random(20240607)
    data = bytes(rng.randrange(256) for _ in range(20000))
    cases = {
        # An iterable: one chunk per piece, empty pieces skipped.
        "pieces": iter([b"hello", b"", b" ", b"world\r\n", data[:1], data[:4095], data[:16]]),
        # A file: read in blocks of the connection's block size (8192).
        "file": io.BytesIO(data),
        "text_lines": iter([line.encode() + b"\n" for line in ["alpha", "beta", "", "gamma"]]),
        "empty": iter([]),
    }
    for name, payload in cases.items():
        with open(f"python_{name}.bin", "wb") as out:
            out.write(body_of(payload))


if __name__ == "__main__":
    main()
