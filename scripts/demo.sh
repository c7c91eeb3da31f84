#!/usr/bin/env bash
# The demo: builds the library and the example host and starts the host on its built-in settings
# (examples/host/host.properties: 127.0.0.1:8080, the pages of examples/host/site). Arguments are
# passed on (--config FILE, --selftest). Stop it with Ctrl-C.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
source "$root/scripts/deps.sh"
ensure_packages cmake g++ make curl
cmake -S "$root" -B "$root/build/demo" -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF \
  -DKIV_BUILD_EXAMPLES=ON >/dev/null
cmake --build "$root/build/demo" -j"$(nproc)" --target kiv-host
echo "open the address below in a browser, or try: curl --data-binary 'Grüße' http://127.0.0.1:8080/upper"
exec "$root/build/demo/examples/host/kiv-host" "$@"
