#!/usr/bin/env bash
# Checks the layering of src/, then builds and runs the whole test suite: a plain build, an
# AddressSanitizer + UndefinedBehaviorSanitizer build (each with the example host driven by real
# clients), a ThreadSanitizer build of the thread-facing families, a build with the second
# compiler (clang), short runs of the fuzz targets, the consumer projects that use the library
# through add_subdirectory, find_package and pkg-config, shared and static, and a Windows cross
# build whose tests run under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ensure_packages cmake g++ make libgtest-dev clang libclang-rt-14-dev pkg-config curl python3 \
  node-llhttp

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

# The example host's integration test (label "host") runs alone after the unit tests: it drives
# the host with 64 concurrent clients and times slow ones, which other load would disturb.
run_tests() {  # build dir
  ctest --test-dir "$1" --output-on-failure -j"$jobs" -LE host
  ctest --test-dir "$1" --output-on-failure -L host
}

stage "layering of src/"
python3 scripts/layering.py

stage "plain build (g++)"
configure build/plain -DKIV_BUILD_EXAMPLES=ON
cmake --build build/plain -j"$jobs"
run_tests build/plain

stage "AddressSanitizer + UndefinedBehaviorSanitizer build"
configure build/asan -DKIV_ASAN=ON -DKIV_BUILD_EXAMPLES=ON
cmake --build build/asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 run_tests build/asan

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

stage "fuzz targets (clang, libFuzzer + AddressSanitizer + UndefinedBehaviorSanitizer)"
# Replays every committed regression input, then fuzzes each target for 20 s, two at a time.
bash scripts/fuzz.sh all 20

stage "consumer projects"
bash scripts/consumers.sh

stage "Windows cross build (MinGW-w64), tests under Wine"
bash scripts/windows.sh
stage "done"
