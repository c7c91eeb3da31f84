#!/usr/bin/env python3
"""Integration test of the example host against real clients (http.client, curl, raw sockets).

Usage: host_test.py KIV_HOST_BINARY [CORPUS_DIR]. Exits 0 when every check passed.
"""
import http.client
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

HOST, READ_TIMEOUT_MS, MAX_HEADER, MAX_BODY = "127.0.0.1", 1000, 4096, 1 << 20
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAIL", what, flush=True)


def raw(data, *, shut_write=False, timeout=5.0, pause=0):
    """Sends `data` (or a list of parts with `pause` seconds between) and reads until the host
    closes or goes quiet. Returns (status, headers, body, closed, everything received)."""
    with socket.create_connection((HOST, port), timeout=timeout) as s:
        try:
            for i, part in enumerate(data if isinstance(data, list) else [data]):
                time.sleep(pause if i else 0)
                s.sendall(part)
            if shut_write:
                s.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # refused before everything was sent: the answer is still to be read
        received, closed = b"", True
        try:
            while piece := s.recv(65536):
                received += piece
        except socket.timeout:
            closed = False
        except ConnectionResetError:
            pass
    return parse_answer(received) + (closed, received)


def expect(data, status, what, closed=None, **options):
    """raw(), checking the answer's status and, unless None, whether the host closed."""
    answer = raw(data, **options)
    check(answer[0] == status and closed in (None, answer[3]), f"{what}: status {answer[0]}, closed {answer[3]}")
    return answer


def parse_answer(data):
    """The first answer in `data`: (status, {lower-case name: value}, decoded body)."""
    head, _, rest = data.partition(b"\r\n\r\n")
    lines = head.decode("latin-1").split("\r\n")
    if not lines[0].startswith("HTTP/1.1 "):
        return 0, {}, b""
    headers = dict((k.strip().lower(), v.strip()) for k, _, v in (l.partition(":") for l in lines[1:]))
    body = rest[: int(headers.get("content-length", len(rest)))]
    if headers.get("transfer-encoding") == "chunked":
        body = b""
        while size := int(rest.partition(b"\r\n")[0].split(b";")[0], 16):
            rest = rest.partition(b"\r\n")[2]
            body, rest = body + rest[:size], rest[size + 2:]
    return int(lines[0][9:12]), headers, body


def upper_request(body, *, chunk=None, charset=None, extension=b""):
    head = b"POST /upper HTTP/1.1\r\nHost: t\r\nConnection: close\r\n"
    head += b"Content-Type: text/plain; charset=%s\r\n" % charset.encode() if charset else b""
    if not chunk:
        return head + b"Content-Length: %d\r\n\r\n" % len(body) + body
    pieces = (body[i:i + chunk] for i in range(0, len(body), chunk))
    return head + b"Transfer-Encoding: chunked\r\n\r\n" + \
        b"".join(b"%x%s\r\n%s\r\n" % (len(p), extension, p) for p in pieces) + b"0\r\nX-Trailer: done\r\n\r\n"


def compare_upper(text, body, what):
    """Compares with Python's upper case where both map one character to one (the host maps 16-bit units)."""
    try:
        got = body.decode("utf-8")  # strict: characters above U+FFFF in four bytes
    except UnicodeDecodeError as e:
        return check(False, f"{what}: the answer is no valid UTF-8 ({e})")
    wrong = [i for i, (c, g) in enumerate(zip(text, got))
             if g != (u := c.upper()) and len(u) == 1 and (ord(c) <= 0xFFFF or u == c)]
    check(len(got) == len(text) and not wrong, f"{what}: {len(got)} characters back for {len(text)}, wrong at {wrong[:3]}")


def log_text():
    return pathlib.Path(log_path).read_text(encoding="utf-8", errors="replace")


def wait_for(predicate, seconds=5.0):
    end = time.time() + seconds
    while time.time() < end and not predicate():
        time.sleep(0.05)
    return predicate()


def test_files_and_keep_alive():
    conn = http.client.HTTPConnection(HOST, port, timeout=5)
    conn.connect()
    first = conn.sock
    for folder, _, files in os.walk(site):
        for path in (os.path.join(folder, name) for name in files if name != "outside"):
            conn.request("GET", "/" + os.path.relpath(path, site))
            r = conn.getresponse()
            check(r.status == 200 and r.read() == pathlib.Path(path).read_bytes(), f"GET {path}")
    for i in range(10):
        conn.request("POST", "/upper", body=b"abc%d" % i, headers={"Content-Type": "text/plain"})
        check(conn.getresponse().read() == b"ABC%d" % i, "keep-alive POST answer")
        conn.request("POST", "/upper", body=iter([b"x", b"yz"]), encode_chunked=True)
        check(conn.getresponse().read() == b"XYZ", "keep-alive chunked POST answer")
    check(conn.sock is first, "keep-alive: the connection was not reused")
    conn.close()
    get = b"GET /style.css HTTP/1.1\r\nHost: t\r\n"
    check(raw(get + b"\r\n" + get + b"Connection: close\r\n\r\n")[4].count(b"HTTP/1.1 200 OK") == 2,
          "two pipelined requests, two answers")
    got = subprocess.run(["curl", "-sS", "--fail", f"http://{HOST}:{port}/scripts/emoji.html"],
                         capture_output=True, timeout=10)
    check(got.returncode == 0 and got.stdout == pathlib.Path(site, "scripts/emoji.html").read_bytes(), "curl GET")
    for target, status in [("/%2e%2E/host.properties", 403), ("/outside", 403), ("/missing.html", 404), ("/%zz", 400)]:
        expect(b"GET %s HTTP/1.1\r\nHost: t\r\n\r\n" % target.encode(), status, f"GET {target}")


def test_upper():
    text = "Grüße, ναΐ Ελλάδα, Москва, 日本語, ǅ ﬀ ß 😀 𐐨\n" * 40
    for size in (1, 3, 64, 4096, 65536):
        for extension in (b"", b";name=value", b';a;b="q q"')[: 1 if size == 1 else 3]:
            _, headers, body, _, _ = expect(upper_request(text.encode(), chunk=size, extension=extension), 200,
                                            f"{size}-byte chunks{extension.decode()}")
            check(headers.get("transfer-encoding") == "chunked", "/upper answers in chunks")
            compare_upper(text, body, f"chunks of {size}")
    names = sorted(f for f in os.listdir(corpus) if f.endswith(".utf8.txt")) if os.path.isdir(corpus) else []
    for name in names:
        text = pathlib.Path(corpus, name).read_bytes().decode("utf-8")
        for charset, chunk in [("utf-8", 4000)] + name.startswith(("Latin", "Russian")) * [("utf-16", 0), ("utf-32", 0)]:
            payload = text.encode(charset if chunk else charset + "-le")
            body = expect(upper_request(payload, charset=charset, chunk=chunk), 200, f"/upper {name} as {charset}")[2]
            compare_upper(text, body, f"/upper {name} as {charset}")


def test_bad_input():
    post = b"POST /upper HTTP/1.1\r\nHost: t\r\n"
    coded = post + b"Transfer-Encoding: chunked\r\n\r\n"
    cases = [
        ("malformed request line", b"GARBAGE\r\n\r\n", 400),
        ("oversized head", b"GET / HTTP/1.1\r\nHost: t\r\nX: " + b"a" * MAX_HEADER + b"\r\n\r\n", 431),
        ("length and coding", post + b"Content-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n", 400),
        ("unknown coding", post + b"Transfer-Encoding: gzip\r\n\r\n", 501),
        ("body too large", post + b"Content-Length: %d\r\n\r\n" % (MAX_BODY + 1), 413),
        ("unknown charset", upper_request(b"abc", charset="latin-1"), 415),
        ("invalid UTF-8", upper_request(b"ok \xff\xfe"), 400),
        ("truncated UTF-8", upper_request(b"ok \xe6\x97", chunk=2), 400),
        ("chunk size without digits", coded + b";x\r\nab\r\n0\r\n\r\n", 400),
        ("chunk size bare LF", coded + b"2\nab\r\n0\r\n\r\n", 400),
        ("chunk data too long", coded + b"2\r\nabc\r\n0\r\n\r\n", 400),
        ("chunk size overflow", coded + b"1000000000\r\n", 400),
        ("chunk extension without a name", coded + b"2;=x\r\nab\r\n0\r\n\r\n", 400),
        ("chunk extension value missing", coded + b"2;a=\r\nab\r\n0\r\n\r\n", 400),
    ]
    for what, request, status in cases:
        expect(request, status, what, closed=True)
    # Bodies cut short: the client half-closes.
    expect(upper_request(b"abcdef")[:-3], 400, "Content-Length body cut short", closed=True, shut_write=True)
    expect(upper_request(b"abcdef" * 10, chunk=7)[:-20], 400, "chunked body cut short", closed=True, shut_write=True)
    # Slow clients: a head that never ends, a body that stalls.
    slow = dict(closed=True, timeout=READ_TIMEOUT_MS / 1000 + 3)
    expect([b"GET / HTTP/1.1\r\nHo"], 408, "slow head", **slow)
    expect([upper_request(b"abcdef")[:-3]], 408, "stalled body", **slow)


def test_concurrent_clients(clients=64, requests=12):
    page, errors = pathlib.Path(site, "4k.txt").read_bytes(), []

    def client(n):
        try:
            conn = http.client.HTTPConnection(HOST, port, timeout=20)
            for i in range(requests):
                text = f"client {n} request {i} ß α ж\n" * (i + 1)
                conn.request(*(("POST", "/upper", text.encode()) if i % 2 else ("GET", "/4k.txt")))
                r = conn.getresponse()
                upper = "".join(u if len(u := c.upper()) == 1 else c for c in text)  # one to one
                if r.status != 200 or r.read() != (upper.encode() if i % 2 else page):
                    errors.append(f"client {n} request {i}: status {r.status}")
            conn.close()
        except Exception as e:  # noqa: BLE001 - every failure counts
            errors.append(f"client {n}: {e!r}")

    threads, start = [threading.Thread(target=client, args=(n,)) for n in range(clients)], time.time()
    for t in threads:
        t.start()
    for t in threads:
        t.join(60)
    check(not any(t.is_alive() for t in threads), "concurrent clients did not finish within 60 s")
    check(not errors, f"concurrent clients: {errors[:3]}")
    print(f"{clients} clients x {requests} requests in {time.time() - start:.2f} s", flush=True)


def test_signals():
    # SIGHUP reloads the settings: at level warn, no info lines.
    for count, level in enumerate(("warn", "info"), 1):
        write_settings(level)
        proc.send_signal(signal.SIGHUP)
        check(wait_for(lambda: log_text().count("settings reloaded") >= count), "SIGHUP: no reload line")
        raw(b"GET /?hup-%s HTTP/1.1\r\nHost: t\r\nConnection: close\r\n\r\n" % level.encode())
    check(wait_for(lambda: "GET /?hup-info 200" in log_text()), "SIGHUP: info lines did not come back")
    check("hup-warn" not in log_text(), "SIGHUP: info line written at level warn")
    # A request under way when SIGTERM arrives is finished, then the host exits 0.
    request = upper_request(b"last words")
    threading.Timer(0.3, proc.send_signal, [signal.SIGTERM]).start()
    status, _, body, _, _ = raw([request[:-4], request[-4:]], pause=0.6)
    check(status == 200 and body == b"LAST WORDS", f"request under way at SIGTERM: status {status}")
    check(proc.wait(10) == 0, f"exit status after SIGTERM: {proc.returncode}")
    check("stopped" in log_text(), "the on-exit task did not run")


def write_settings(level):
    pathlib.Path(settings_path).write_text(
        f"server/port: 0\nserver/document-root: site\nserver/read-timeout-ms: {READ_TIMEOUT_MS}\n"
        f"server/max-header-bytes: {MAX_HEADER}\nserver/max-body-bytes: {MAX_BODY}\n"
        f"server/connection-limit: 128\nserver/workers: 8\n"
        f"logs/application/file: host.log\nlogs/application/level: {level}\n", encoding="utf-8")


def host_resources():
    status = pathlib.Path(f"/proc/{proc.pid}/status").read_text().splitlines()
    return len(os.listdir(f"/proc/{proc.pid}/fd")), next(l for l in status if l.startswith("Threads:"))


def main():
    global port, proc, site, corpus, log_path, settings_path
    binary, here = os.path.abspath(sys.argv[1]), os.path.dirname(os.path.abspath(__file__))
    corpus = os.path.join(sys.argv[2] if len(sys.argv) > 2 else os.environ.get(
        "KIV_CORPUS_DIR", os.path.join(here, "../../../shared/corpus")), "unicode_lipsum")
    work = tempfile.mkdtemp(prefix="kiv-host-test-")
    try:
        site = os.path.join(work, "site")
        shutil.copytree(os.path.join(here, "../../examples/host/site"), site)
        pathlib.Path(site, "all-bytes.bin").write_bytes(bytes(range(256)) * 300)
        pathlib.Path(site, "4k.txt").write_bytes(b"0123456789abcde\n" * 256)
        pathlib.Path(work, "host.properties.secret").write_text("outside the root\n")
        os.symlink(os.path.join(work, "host.properties.secret"), os.path.join(site, "outside"))
        settings_path, log_path = os.path.join(work, "host.properties"), os.path.join(work, "host.log")
        write_settings("info")
        proc = subprocess.Popen([binary, "--config", settings_path], stdout=subprocess.PIPE, text=True)
        port = int(proc.stdout.readline().rsplit(":", 1)[1].strip("/\n"))  # "... http://127.0.0.1:PORT/"
        before = host_resources()
        for test in (test_files_and_keep_alive, test_upper, test_bad_input, test_concurrent_clients):
            print("--", test.__name__, flush=True)
            test()
        # No leak: no more descriptors than at the start (one may still be open from start-up
        # then) and the same threads.
        def settled():
            fds, threads = host_resources()
            return fds <= before[0] and threads == before[1]
        check(wait_for(settled, 3), f"descriptors and threads {before} became {host_resources()}")
        print("-- test_signals", flush=True)
        test_signals()
    finally:
        if "proc" in globals() and proc.poll() is None:
            proc.kill()
        shutil.rmtree(work, ignore_errors=True)
    print(f"{len(failures)} failure(s)" if failures else "all host checks passed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
