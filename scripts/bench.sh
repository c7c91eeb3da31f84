#!/usr/bin/env bash
# Installs the benchmark peers, builds the benchmarks (Release) and runs them all, or the ones
# named as arguments (for example: scripts/bench.sh converters_bench). With --summary first, it
# prints instead one table of every benchmark against its peer, as ratios
# (scripts/bench_summary.py).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ensure_packages cmake g++ make libbenchmark-dev libicu-dev libboost-dev libconcurrentqueue-dev libabsl-dev \
  node-llhttp libhttp-parser-dev
cmake -S . -B build/bench -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF -DKIV_BUILD_EXAMPLES=OFF \
  -DKIV_BUILD_BENCH=ON >/dev/null
cmake --build build/bench -j"$(nproc)"
summary=0
if [ "${1:-}" = --summary ]; then
  summary=1
  shift
fi
benches=("$@")
if [ ${#benches[@]} -eq 0 ]; then
  for f in build/bench/bench/*_bench; do benches+=("$(basename "$f")"); done
fi
if [ "$summary" = 1 ]; then
  exec python3 scripts/bench_summary.py build/bench/bench "${benches[@]}"
fi
for b in "${benches[@]}"; do
  echo "== $b =="
  "./build/bench/bench/$b"
done
