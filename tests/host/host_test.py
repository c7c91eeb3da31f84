#!/usr/bin/env python3
"""Integration test of the example host against real clients (http.client, curl, raw sockets).

Usage: host_test.py KIV_HOST_BINARY [CORPUS_DIR]

Starts kiv-host on a free loopback port with settings of its own, checks what it serves and how
it refuses bad input, loads it with concurrent clients, changes its log level with SIGHUP and
stops it with SIGTERM. Exits 0 when every check passed.
"""
import email.utils
import http.client
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

HOST = "127.0.0.1"
READ_TIMEOUT_MS = 1000
MAX_HEADER = 4096
MAX_BODY = 1 << 20

failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL", what, flush=True)


# ---------------------------------------------------------------------------------------------
# Clients


def raw(data, *, shut_write=False, timeout=5.0, pause=None):
    """Sends `data` (or a list of parts with `pause` seconds between) and reads until the host
    closes or goes quiet. Returns (status, headers, body, closed)."""
    with socket.create_connection((HOST, port), timeout=timeout) as s:
        try:
            for i, part in enumerate(data if isinstance(data, list) else [data]):
                if i and pause:
                    time.sleep(pause)
                s.sendall(part)
            if shut_write:
                s.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # refused before everything was sent: the answer is still to be read
        received, closed = b"", False
        try:
            while True:
                piece = s.recv(65536)
                if not piece:
                    closed = True
                    break
                received += piece
        except socket.timeout:
            pass
        except ConnectionResetError:
            closed = True
    return parse_answer(received) + (closed,)


def parse_answer(data):
    """The first answer in `data`: (status, {lower-case name: value}, decoded body)."""
    head, _, rest = data.partition(b"\r\n\r\n")
    lines = head.decode("latin-1").split("\r\n")
    if not lines[0].startswith("HTTP/1.1 "):
        return 0, {}, b""
    headers = dict((k.strip().lower(), v.strip()) for k, _, v in (l.partition(":") for l in lines[1:]))
    if headers.get("transfer-encoding") == "chunked":
        body = b""
        while True:
            size_line, _, rest = rest.partition(b"\r\n")
            size = int(size_line.split(b";")[0], 16)
            if size == 0:
                break
            body, rest = body + rest[:size], rest[size + 2:]
        return int(lines[0][9:12]), headers, body
    return int(lines[0][9:12]), headers, rest[: int(headers.get("content-length", len(rest)))]


def chunked(payload, size, extension=b""):
    out = b""
    for i in range(0, len(payload), size):
        piece = payload[i:i + size]
        out += b"%x%s\r\n%s\r\n" % (len(piece), extension, piece)
    return out + b"0\r\nX-Trailer: done\r\n\r\n"


def upper_request(body, *, chunk=None, charset=None, extension=b""):
    head = b"POST /upper HTTP/1.1\r\nHost: t\r\nConnection: close\r\n"
    if charset:
        head += b"Content-Type: text/plain; charset=%s\r\n" % charset.encode()
    if chunk:
        return head + b"Transfer-Encoding: chunked\r\n\r\n" + chunked(body, chunk, extension)
    return head + b"Content-Length: %d\r\n\r\n" % len(body) + body


def decode_answer(body):
    # Strict decoding: answers are standard UTF-8, characters above U+FFFF in four bytes.
    return body.decode("utf-8")


def simple_upper(text):
    """Python's upper case where it maps one character to one."""
    return "".join(u if len(u := c.upper()) == 1 else c for c in text)


def compare_upper(text, body, what):
    """Compares the host's upper-casing with Python's where both are one-to-one: characters whose
    Python upper case has another length are skipped, and so are characters above U+FFFF with a
    case (the host maps 16-bit units)."""
    try:
        got = decode_answer(body)
    except UnicodeDecodeError as e:
        check(False, f"{what}: the answer is no valid UTF-8 ({e})")
        return
    if len(got) != len(text):
        check(False, f"{what}: {len(got)} characters back for {len(text)}")
        return
    for i, (c, g) in enumerate(zip(text, got)):
        expected = c.upper()
        if len(expected) != 1 or (ord(c) > 0xFFFF and expected != c):
            continue
        if g != expected:
            check(False, f"{what}: U+{ord(c):04X} at {i} became U+{ord(g):04X}, not U+{ord(expected):04X}")
            return


def log_text():
    with open(log_path, encoding="utf-8", errors="replace") as f:
        return f.read()


def wait_for(predicate, seconds=5.0):
    end = time.time() + seconds
    while time.time() < end:
        if predicate():
            return True
        time.sleep(0.05)
    return False


# ---------------------------------------------------------------------------------------------
# Checks


def test_static_files():
    types = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8",
             ".bin": "application/octet-stream", ".txt": "text/plain; charset=utf-8"}
    conn = http.client.HTTPConnection(HOST, port, timeout=5)
    for folder, _, files in os.walk(site):
        for name in files:
            path = os.path.join(folder, name)
            url = "/" + os.path.relpath(path, site)
            if os.path.islink(path):
                continue
            with open(path, "rb") as f:
                content = f.read()
            for method in ("GET", "HEAD"):
                conn.request(method, url)
                r = conn.getresponse()
                body = r.read()
                check(r.status == 200, f"{method} {url}: status {r.status}")
                check(body == (content if method == "GET" else b""), f"{method} {url}: body differs")
                check(r.getheader("Content-Length") == str(len(content)), f"{url}: Content-Length")
                check(r.getheader("Content-Type") == types[os.path.splitext(name)[1]], f"{url}: Content-Type")
                check(r.getheader("Last-Modified") == email.utils.formatdate(int(os.path.getmtime(path)), usegmt=True),
                      f"{url}: Last-Modified {r.getheader('Last-Modified')}")
                check(abs(email.utils.parsedate_to_datetime(r.getheader("Date")).timestamp() - time.time()) < 5,
                      f"{url}: Date")
    check(conn.sock is not None, "keep-alive: the connection was closed between files")
    conn.close()
    got = subprocess.run(["curl", "-sS", "--fail", f"http://{HOST}:{port}/scripts/emoji.html"],
                         capture_output=True, timeout=10)
    with open(os.path.join(site, "scripts/emoji.html"), "rb") as f:
        check(got.returncode == 0 and got.stdout == f.read(), "curl GET of a page")
    for target, statuses in [("/../host.properties", {403}), ("/%2e%2E/host.properties", {403}),
                             ("/scripts/..%2F..%2Fhost.properties", {403}), ("/outside", {403}),
                             ("/missing.html", {404}), ("/%00", {400}), ("/%zz", {400})]:
        status = raw(b"GET %s HTTP/1.1\r\nHost: t\r\n\r\n" % target.encode())[0]
        check(status in statuses, f"GET {target}: status {status}")


def test_upper():
    text = "Grüße, ναΐ Ελλάδα, Москва, 日本語, ǅ ﬀ ß 😀 𐐨\n" * 40
    data = text.encode("utf-8")
    for size in (1, 2, 3, 5, 64, 1000, 4096, 65536):
        for extension in (b"", b";name=value", b';a;b="q q"'):
            if size == 1 and extension:
                continue  # one-byte chunks are slow enough once
            status, headers, body, _ = raw(upper_request(data, chunk=size, extension=extension))
            check(status == 200 and headers.get("transfer-encoding") == "chunked",
                  f"chunked upload, {size}-byte chunks{extension.decode()}: status {status}")
            compare_upper(text, body, f"chunks of {size}")
    corpus_files = sorted(f for f in os.listdir(corpus) if f.endswith(".utf8.txt")) if corpus else []
    if not corpus_files:
        print("note: no corpus found, /upper checked on the built-in text only")
    for name in corpus_files:
        with open(os.path.join(corpus, name), "rb") as f:
            data = f.read()
        text = data.decode("utf-8")
        for charset, payload in (("utf-8", data), ("utf-16", text.encode("utf-16-le")),
                                 ("utf-32", text.encode("utf-32-le"))):
            if charset != "utf-8" and not name.startswith(("Latin", "Russian")):
                continue
            status, _, body, _ = raw(upper_request(payload, charset=charset, chunk=4000 if charset == "utf-8" else None))
            check(status == 200, f"/upper {name} as {charset}: status {status}")
            compare_upper(text, body, f"/upper {name} as {charset}")


def test_keep_alive():
    conn = http.client.HTTPConnection(HOST, port, timeout=5)
    conn.connect()
    first = conn.sock
    for i in range(10):
        conn.request("POST", "/upper", body=b"abc%d" % i, headers={"Content-Type": "text/plain"})
        r = conn.getresponse()
        check(r.read() == b"ABC%d" % i, "keep-alive POST answer")
        conn.request("POST", "/upper", body=iter([b"x", b"yz"]), encode_chunked=True)
        check(conn.getresponse().read() == b"XYZ", "keep-alive chunked POST answer")
        conn.request("GET", "/missing")  # a 404 keeps the connection
        conn.getresponse().read()
    check(conn.sock is first, "keep-alive: the connection was not reused")
    conn.close()
    two = b"GET /style.css HTTP/1.1\r\nHost: t\r\n\r\nGET /style.css HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n"
    with socket.create_connection((HOST, port), timeout=5) as s:
        s.sendall(two)
        data = b""
        while (piece := s.recv(65536)):
            data += piece
    check(data.count(b"HTTP/1.1 200 OK") == 2, "two pipelined requests, two answers")
    status, headers, _, closed = raw(b"GET / HTTP/1.0\r\n\r\n")
    check(status == 200 and closed and headers.get("connection") == "close", "HTTP/1.0 closes")


def test_bad_input():
    warns_before = log_text().count("kiv-host: 127.0.0.1:")
    cases = [
        ("malformed request line", [b"GARBAGE\r\n\r\n"], 400),
        ("space in target", [b"GET /a b HTTP/1.1\r\nHost: t\r\n\r\n"], 400),
        ("HTTP/2.0", [b"GET / HTTP/2.0\r\nHost: t\r\n\r\n"], 505),
        ("missing Host", [b"GET / HTTP/1.1\r\n\r\n"], 400),
        ("folded header", [b"GET / HTTP/1.1\r\nHost: t\r\n x\r\n\r\n"], 400),
        ("oversized head", [b"GET / HTTP/1.1\r\nHost: t\r\nX: " + b"a" * MAX_HEADER + b"\r\n\r\n"], 431),
        ("length and coding", [b"POST /upper HTTP/1.1\r\nHost: t\r\nContent-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n"], 400),
        ("unknown coding", [b"POST /upper HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: gzip\r\n\r\n"], 501),
        ("body too large", [b"POST /upper HTTP/1.1\r\nHost: t\r\nContent-Length: %d\r\n\r\n" % (MAX_BODY + 1)], 413),
        ("unknown charset", [upper_request(b"abc", charset="latin-1")], 415),
        ("invalid UTF-8", [upper_request(b"ok \xff\xfe")], 400),
        ("truncated UTF-8", [upper_request(b"ok \xe6\x97", chunk=2)], 400),
        ("chunk size without digits", [b"POST /upper HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: chunked\r\n\r\n;x\r\nab\r\n0\r\n\r\n"], 400),
        ("chunk size bare LF", [b"POST /upper HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: chunked\r\n\r\n2\nab\r\n0\r\n\r\n"], 400),
        ("chunk data too long", [b"POST /upper HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nabc\r\n0\r\n\r\n"], 400),
        ("chunk size overflow", [b"POST /upper HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: chunked\r\n\r\n1000000000\r\n"], 400),
        # Framing only the strict decoder refuses: an extension without a name, a signed size.
        ("chunk extension without a name", [b"POST /upper HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: chunked\r\n\r\n2;=x\r\nab\r\n0\r\n\r\n"], 400),
        ("chunk extension value missing", [b"POST /upper HTTP/1.1\r\nHost: t\r\nTransfer-Encoding: chunked\r\n\r\n2;a=\r\nab\r\n0\r\n\r\n"], 400),
    ]
    for what, parts, expected in cases:
        status, _, _, closed = raw(parts)
        check(status == expected and closed, f"{what}: status {status}, closed {closed}")
    # Bodies cut short: the client stops sending and half-closes.
    for what, request in [("Content-Length body cut short", upper_request(b"abcdef")[:-3]),
                          ("chunked body cut short", upper_request(b"abcdef" * 10, chunk=7)[:-20])]:
        status, _, _, closed = raw(request, shut_write=True)
        check(status == 400 and closed, f"{what}: status {status}")
    # Slow clients: a head that never ends, a body that stalls.
    start = time.time()
    status, _, _, closed = raw([b"GET / HTTP/1.1\r\nHo"], timeout=READ_TIMEOUT_MS / 1000 + 3)
    check(status == 408 and closed, f"slow head: status {status}")
    # Each part comes well within the read timeout, but the head is not done by the deadline.
    slow = [b"GET / HTTP/1.1\r\n"] + [b"X-%d: y\r\n" % i for i in range(7)]
    trickle_start = time.time()
    status, _, _, closed = raw(slow, pause=READ_TIMEOUT_MS / 8000, timeout=READ_TIMEOUT_MS / 1000 + 3)
    check(status == 408 and closed and time.time() - trickle_start < 1.6 * READ_TIMEOUT_MS / 1000,
          f"trickled head past the deadline: status {status}")
    status, _, _, closed = raw([upper_request(b"abcdef")[:-3]], timeout=READ_TIMEOUT_MS / 1000 + 3)
    check(status == 408 and closed, f"stalled body: status {status}")
    check(time.time() - start < 4 * READ_TIMEOUT_MS / 1000 + 3, "slow clients took too long to refuse")
    warns = log_text().count("kiv-host: 127.0.0.1:") - warns_before
    check(warns >= len(cases) + 5, f"only {warns} warn lines for {len(cases) + 5} refusals")
    check(raw(b"GET / HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n")[0] == 200, "still serving")


def test_concurrent_clients(clients=64, requests=12):
    with open(os.path.join(site, "4k.txt"), "rb") as f:
        page = f.read()
    errors = []

    def client(n):
        try:
            conn = http.client.HTTPConnection(HOST, port, timeout=20)
            for i in range(requests):
                if i % 2:
                    body = f"client {n} request {i} ß α ж\n".encode() * (i + 1)
                    conn.request("POST", "/upper", body=body)
                    r = conn.getresponse()
                    expected = simple_upper(body.decode()).encode()
                else:
                    conn.request("GET", "/4k.txt")
                    r = conn.getresponse()
                    expected = page
                got = r.read()
                if r.status != 200 or got != expected:
                    errors.append(f"client {n} request {i}: status {r.status}, {len(got)} bytes")
            conn.close()
        except Exception as e:  # noqa: BLE001 - every failure counts
            errors.append(f"client {n}: {e!r}")

    threads = [threading.Thread(target=client, args=(n,)) for n in range(clients)]
    start = time.time()
    for t in threads:
        t.start()
    for t in threads:
        t.join(60)
    check(not any(t.is_alive() for t in threads), "concurrent clients did not finish within 60 s")
    check(not errors, f"concurrent clients: {errors[:3]}")
    print(f"{clients} clients x {requests} requests in {time.time() - start:.2f} s", flush=True)


def host_resources():
    fds = len(os.listdir(f"/proc/{proc.pid}/fd"))
    with open(f"/proc/{proc.pid}/status") as f:
        threads = next(int(l.split()[1]) for l in f if l.startswith("Threads:"))
    return fds, threads


def test_sighup_level():
    def reload(level, count):
        write_settings(level)
        proc.send_signal(signal.SIGHUP)
        check(wait_for(lambda: log_text().count("settings reloaded") >= count), "SIGHUP: no reload line")

    reload("warn", 1)
    raw(b"GET /?hup-warn HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n")
    reload("info", 2)
    raw(b"GET /?hup-info HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n")
    check(wait_for(lambda: "GET /?hup-info 200" in log_text()), "SIGHUP: info lines did not come back")
    check("hup-warn" not in log_text(), "SIGHUP: info line written at level warn")


def test_sigterm():
    # A request under way when SIGTERM arrives is finished, then the host exits 0.
    s = socket.create_connection((HOST, port), timeout=5)
    request = upper_request(b"last words")
    s.sendall(request[:-4])
    time.sleep(0.2)
    proc.send_signal(signal.SIGTERM)
    time.sleep(0.2)
    s.sendall(request[-4:])
    data = b""
    while (piece := s.recv(65536)):
        data += piece
    s.close()
    status, _, body = parse_answer(data)
    check(status == 200 and body == b"LAST WORDS", f"request under way at SIGTERM: status {status}")
    try:
        code = proc.wait(10)
    except subprocess.TimeoutExpired:
        proc.kill()
        code = "none (killed)"
    check(code == 0, f"exit status after SIGTERM: {code}")
    check("stopped" in log_text(), "the on-exit task did not run")


# ---------------------------------------------------------------------------------------------


def write_settings(level):
    with open(settings_path, "w", encoding="utf-8") as f:
        f.write(f"server/port: 0\nserver/document-root: site\nserver/read-timeout-ms: {READ_TIMEOUT_MS}\n"
                f"server/max-header-bytes: {MAX_HEADER}\nserver/max-body-bytes: {MAX_BODY}\n"
                f"server/connection-limit: 128\nserver/workers: 8\n"
                f"logs/application/file: host.log\nlogs/application/level: {level}\n")


def main():
    global port, proc, site, corpus, log_path, settings_path
    binary = os.path.abspath(sys.argv[1])
    here = os.path.dirname(os.path.abspath(__file__))
    corpus = sys.argv[2] if len(sys.argv) > 2 else os.environ.get(
        "KIV_CORPUS_DIR", os.path.join(here, "../../../shared/corpus"))
    corpus = os.path.join(corpus, "unicode_lipsum")
    corpus = corpus if os.path.isdir(corpus) else None
    work = tempfile.mkdtemp(prefix="kiv-host-test-")
    try:
        site = os.path.join(work, "site")
        shutil.copytree(os.path.join(here, "../../examples/host/site"), site)
        with open(os.path.join(site, "all-bytes.bin"), "wb") as f:
            f.write(bytes(range(256)) * 300)
        with open(os.path.join(site, "4k.txt"), "wb") as f:
            f.write(b"0123456789abcde\n" * 256)
        with open(os.path.join(work, "host.properties.secret"), "w") as f:
            f.write("outside the root\n")
        os.symlink(os.path.join(work, "host.properties.secret"), os.path.join(site, "outside"))
        settings_path = os.path.join(work, "host.properties")
        log_path = os.path.join(work, "host.log")
        write_settings("info")
        proc = subprocess.Popen([binary, "--config", settings_path], stdout=subprocess.PIPE, text=True)
        line = proc.stdout.readline()
        check(line.startswith("kiv-host listening on http://127.0.0.1:"), f"first line: {line!r}")
        port = int(line.rsplit(":", 1)[1].strip("/\n"))
        before = host_resources()
        for test in (test_static_files, test_upper, test_keep_alive, test_bad_input,
                     test_concurrent_clients):
            print("--", test.__name__, flush=True)
            test()
        wait_for(lambda: host_resources() == before, 3)
        check(host_resources() == before, f"descriptors and threads {before} became {host_resources()}")
        for test in (test_sighup_level, test_sigterm):
            print("--", test.__name__, flush=True)
            test()
    finally:
        if "proc" in globals() and proc.poll() is None:
            proc.kill()
        shutil.rmtree(work, ignore_errors=True)
    print(f"{len(failures)} failure(s)" if failures else "all host checks passed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
