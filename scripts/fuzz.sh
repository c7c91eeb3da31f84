#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, AddressSanitizer + UndefinedBehaviorSanitizer) and
# runs them.
#
#   scripts/fuzz.sh TARGET [SECONDS]   replays TARGET's regression inputs, then fuzzes it for
#                                      SECONDS (default 60) from its seed corpus
#   scripts/fuzz.sh all [SECONDS]      the same for every target, two at a time (CI: 20 s each)
#   scripts/fuzz.sh list               the target names
#
# TARGET is the name without "_fuzz" (chunked_decode). New inputs go to build/fuzz/corpus/TARGET,
# never into the committed seeds; a finding is written to build/fuzz/artifacts/TARGET/ and fails
# the run. To keep one as a regression, copy it to fuzz/regressions/TARGET/ once it is fixed.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ensure_packages cmake make clang libclang-rt-14-dev

build=build/fuzz
targets() { sed -n 's/^kiv_fuzz_target(\([a-z0-9_]*\)).*/\1/p' fuzz/CMakeLists.txt; }

build_targets() {  # target names...
  # Configured every time (quick), so that a target added to fuzz/CMakeLists.txt is found.
  cmake -S fuzz -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DKIV_WERROR=ON >/dev/null
  local names=()
  for t in "$@"; do names+=("${t}_fuzz"); done
  cmake --build "$build" -j"$(nproc)" --target "${names[@]}"
}

run_target() {  # target, seconds
  local t=$1 seconds=$2 bin="$build/${1}_fuzz"
  local regressions=(fuzz/regressions/"$t"/*)
  if [ -e "${regressions[0]}" ]; then
    "$bin" "${regressions[@]}" >"$build/logs/$t.regressions.log" 2>&1 || {
      echo "$t: a regression input fails again (log: $build/logs/$t.regressions.log)"
      tail -n 30 "$build/logs/$t.regressions.log"
      return 1
    }
  fi
  mkdir -p "$build/corpus/$t" "$build/artifacts/$t"
  if "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$build/artifacts/$t/" "$build/corpus/$t" "fuzz/corpus/$t" \
    >"$build/logs/$t.log" 2>&1; then
    local last done
    last=$(grep -E '^#[0-9]+.*cov:' "$build/logs/$t.log" | tail -n 1 | grep -oE 'cov: [0-9]+ ft: [0-9]+')
    done=$(grep -E '^Done [0-9]+ runs' "$build/logs/$t.log" | tail -n 1)
    echo "$t: $done; $last"
  else
    echo "$t: FINDING (log: $build/logs/$t.log, input in $build/artifacts/$t/)"
    grep -E -A 30 'ERROR|check failed|Assertion|runtime error' "$build/logs/$t.log" | head -n 40
    return 1
  fi
}

what=${1:?"usage: scripts/fuzz.sh TARGET|all|list [SECONDS]"}
seconds=${2:-60}
if [ "$what" = list ]; then
  targets
  exit 0
fi
if [ "$what" = all ]; then
  mapfile -t chosen < <(targets)
else
  targets | grep -qx "$what" || { echo "unknown target: $what (scripts/fuzz.sh list)"; exit 2; }
  chosen=("$what")
fi
build_targets "${chosen[@]}"
mkdir -p "$build/logs"
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1
export -f run_target
export build
# Two at a time: each libFuzzer process uses one core.
printf '%s\n' "${chosen[@]}" | xargs -P 2 -I{} bash -c "run_target {} $seconds"
