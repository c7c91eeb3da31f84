#!/usr/bin/env bash
# Builds and runs the whole test suite: a plain build, an AddressSanitizer + UndefinedBehavior-
# Sanitizer build, and a ThreadSanitizer build of the thread-facing families.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ensure_packages cmake g++ make libgtest-dev

jobs=$(nproc)
configure() {  # dir, extra cmake arguments...
  local dir=$1
  shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKIV_BUILD_EXAMPLES=OFF "$@" >/dev/null
}

echo "== plain build =="
configure build/plain
cmake --build build/plain -j"$jobs"
ctest --test-dir build/plain --output-on-failure -j"$jobs"

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build =="
configure build/asan -DKIV_ASAN=ON
cmake --build build/asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/asan --output-on-failure -j"$jobs"

echo "== ThreadSanitizer build (concurrency tests) =="
configure build/tsan -DKIV_TSAN=ON
targets=()
for t in object locks queues streams filters preferences; do
  [ -f "tests/${t}_test.cpp" ] && targets+=("${t}_test")
done
cmake --build build/tsan -j"$jobs" --target "${targets[@]}"
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build/tsan -L concurrency --output-on-failure -j"$jobs"
