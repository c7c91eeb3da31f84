#!/usr/bin/env bash
# Builds the library and the example host, then runs the demo (arguments are passed on, and
# relative paths in them are taken from the directory the command was started in).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
source "$root/scripts/deps.sh"
ensure_packages cmake g++ make
cmake -S "$root" -B "$root/build/demo" -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF \
  -DKIV_BUILD_EXAMPLES=ON >/dev/null
cmake --build "$root/build/demo" -j"$(nproc)" --target kiv_demo
"$root/build/demo/examples/kiv_demo" "$@"
