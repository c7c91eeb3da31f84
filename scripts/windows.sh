#!/usr/bin/env bash
# Cross-builds the library and every test program for 64-bit Windows with MinGW-w64 and runs the
# tests under Wine, in a throwaway Wine prefix inside the build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
ensure_packages cmake make g++-mingw-w64-x86-64-posix wine64 wine googletest

dir=${KIV_WINDOWS_BUILD:-build/windows}
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || wine=$(command -v wine64 || command -v wine)

export WINEPREFIX="$PWD/$dir/wineprefix"
export WINEDEBUG=-all
# Wine starts its server and prepares the prefix on first use; that is done once here, and the
# server is kept running for the whole stage rather than started again for every test.
mkdir -p "$WINEPREFIX"
wineserver=$(dirname "$wine")/wineserver
[ -x "$wineserver" ] || wineserver=$(command -v wineserver)
"$wineserver" -p || true  # fails only when a server for this prefix already runs
"$wine" wineboot --init >/dev/null 2>&1 || true
trap '"$wineserver" -k 2>/dev/null || true' EXIT

cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
  -DCMAKE_CROSSCOMPILING_EMULATOR="$wine" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKIV_BUILD_EXAMPLES=OFF -DKIV_BUILD_BENCH=OFF -DKIV_INSTALL=OFF -DKIV_WERROR=ON >/dev/null
cmake --build "$dir" -j"$(nproc)"

# The DLL exports the namespace kiv and nothing else (its functions, and the type information,
# tables and thunks of its classes).
stray=$(x86_64-w64-mingw32-objdump -p "$dir/bin/libkiv_common.dll" |
  sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p' | grep -E '^\s+\[' | awk '{print $NF}' |
  x86_64-w64-mingw32-c++filt |
  grep -Ev '^((typeinfo|typeinfo name|vtable|VTT|guard variable) for |construction vtable for kiv::.*-in-|(non-virtual |virtual |covariant return )?thunk to )?kiv::' || true)
if [ -n "$stray" ]; then
  echo "libkiv_common.dll exports names outside the namespace kiv:" >&2
  echo "$stray" >&2
  exit 1
fi

# A program that fails is started once more: Wine itself now and then fails to start a process
# (exit 1, no output) on a loaded machine. A real failure fails both times.
ctest --test-dir "$dir" --output-on-failure -j"$(nproc)" --timeout 600 --repeat until-pass:2
