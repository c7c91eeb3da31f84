#!/usr/bin/env bash
# Builds the library and the example host, then runs the demo (arguments are passed on).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ensure_packages cmake g++ make
cmake -S . -B build/demo -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF -DKIV_BUILD_EXAMPLES=ON >/dev/null
cmake --build build/demo -j"$(nproc)" --target kiv_demo
./build/demo/examples/kiv_demo "$@"
