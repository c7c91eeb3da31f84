#!/usr/bin/env bash
# Runs the example host's integration test against the kiv-host built in BUILD_DIR (a build tree
# of this project with the examples on), with the self-test first.
# Usage: scripts/host_test.sh BUILD_DIR
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
[ $# -eq 1 ] || { echo "usage: $0 BUILD_DIR" >&2; exit 2; }
source "$root/scripts/deps.sh"
ensure_packages curl python3
binary="$(cd "$1" && pwd)/examples/host/kiv-host"
[ -x "$binary" ] || { echo "no kiv-host in $1 (build the kiv-host target)" >&2; exit 2; }
timeout 60 "$binary" --selftest
timeout 600 python3 "$root/tests/host/host_test.py" "$binary" "${KIV_CORPUS_DIR:-$root/../shared/corpus}"
