#!/usr/bin/env bash
# A bounded loopback load run against the example host: requests per second and latency
# percentiles for a 4 KiB static file and for POST /upper with a 64 KiB body in chunked coding.
# Usage: scripts/host_bench.sh [SECONDS] [CONNECTIONS]   (defaults: 10 s, 32 connections)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds=${1:-10}
connections=${2:-32}
source "$root/scripts/deps.sh"
ensure_packages cmake g++ make wrk python3
cmake -S "$root" -B "$root/build/demo" -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF \
  -DKIV_BUILD_EXAMPLES=ON >/dev/null
cmake --build "$root/build/demo" -j"$(nproc)" --target kiv-host >/dev/null

work=$(mktemp -d)
host=""
trap '[ -n "$host" ] && kill "$host" && wait "$host"; rm -rf "$work"' EXIT
mkdir "$work/site"
head -c 4096 /dev/urandom | base64 -w 64 | head -c 4096 >"$work/site/4k.txt"
cat >"$work/host.properties" <<PROPS
server/port: 0
server/document-root: site
server/connection-limit: 256
logs/application/file: host.log
logs/application/level: info
PROPS
# The upload: 64 KiB of mixed-script text in 4 KiB chunks, sent as it stands.
python3 - "$work" <<'PY'
import sys
line = "Grüße, Ελλάδα, Москва, 日本語 — kiv-host bench line\n".encode()
text = line * (65536 // len(line))
text += b"x" * (65535 - len(text)) + b"\n"
body = b"".join(b"%x\r\n%s\r\n" % (len(text[i:i + 4096]), text[i:i + 4096])
                for i in range(0, len(text), 4096)) + b"0\r\n\r\n"
# wrk adds a Content-Length to bodies it knows of, so the request goes out whole, as written here.
request = (b"POST /upper HTTP/1.1\r\nHost: 127.0.0.1\r\nTransfer-Encoding: chunked\r\n"
           b"Content-Type: text/plain; charset=utf-8\r\n\r\n" + body)
lua = 'local raw = "%s"\nrequest = function() return raw end\n' % "".join("\\%03d" % b for b in request)
open(sys.argv[1] + "/upper.lua", "w").write(lua)
PY

"$root/build/demo/examples/host/kiv-host" --config "$work/host.properties" >"$work/out" &
host=$!
for _ in $(seq 50); do grep -q listening "$work/out" && break; sleep 0.1; done
url=$(sed -n 's/^kiv-host listening on //p' "$work/out")
echo "kiv-host at $url on $(nproc) cores; wrk -t2 -c$connections -d${seconds}s"
echo "== GET 4 KiB static file"
wrk -t2 -c"$connections" -d"${seconds}s" --latency "${url}4k.txt"
echo "== POST /upper, 64 KiB chunked"
wrk -t2 -c"$connections" -d"${seconds}s" --latency -s "$work/upper.lua" "${url}upper"
