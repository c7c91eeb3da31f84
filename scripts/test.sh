#!/usr/bin/env bash
# Builds and runs the whole test suite: a plain build, an AddressSanitizer + UndefinedBehavior-
# Sanitizer build, a ThreadSanitizer build of the thread-facing families, a build with the second
# compiler (clang), and the consumer projects that use the library through add_subdirectory,
# find_package and pkg-config, shared and static.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ensure_packages cmake g++ make libgtest-dev clang pkg-config node-llhttp

jobs=$(nproc)
configure() {  # dir, extra cmake arguments...
  local dir=$1
  shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKIV_BUILD_EXAMPLES=OFF -DKIV_WERROR=ON \
    "$@" >/dev/null
}
stage() {  # title: prints the title and the time the previous stage took
  local now=$SECONDS
  [ -n "${stage_start:-}" ] && echo "   (stage took $((now - stage_start)) s)"
  stage_start=$now
  echo "== $1 =="
}

stage "plain build (g++)"
configure build/plain
cmake --build build/plain -j"$jobs"
ctest --test-dir build/plain --output-on-failure -j"$jobs"

stage "AddressSanitizer + UndefinedBehaviorSanitizer build"
configure build/asan -DKIV_ASAN=ON
cmake --build build/asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/asan --output-on-failure -j"$jobs"

stage "ThreadSanitizer build (concurrency tests)"
configure build/tsan -DKIV_TSAN=ON
targets=()
for t in object locks queues streams filters preferences log; do
  [ -f "tests/${t}_test.cpp" ] && targets+=("${t}_test")
done
cmake --build build/tsan -j"$jobs" --target "${targets[@]}"
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build/tsan -L concurrency --output-on-failure -j"$jobs"

stage "plain build (clang++)"
configure build/clang -DCMAKE_CXX_COMPILER=clang++
cmake --build build/clang -j"$jobs"
ctest --test-dir build/clang --output-on-failure -j"$jobs"

stage "consumer projects"
bash scripts/consumers.sh
stage "done"
