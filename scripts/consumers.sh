#!/usr/bin/env bash
# Builds the library as a user would and uses it from the consumer project in tests/consumer
# through every route: installed (shared and static) and found with find_package and pkg-config,
# and included with add_subdirectory. Each consumer program must build and run.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
work=build/consumers
rm -rf "$work"
jobs=$(nproc)

install_kiv() {  # kind (shared|static), cmake arguments...
  local kind=$1
  shift
  cmake -S . -B "$work/kiv-$kind" -DCMAKE_BUILD_TYPE=Release -DKIV_BUILD_TESTS=OFF \
    -DKIV_BUILD_EXAMPLES=OFF -DCMAKE_INSTALL_PREFIX="$root/$work/prefix-$kind" "$@" >/dev/null
  cmake --build "$work/kiv-$kind" -j"$jobs" >/dev/null
  cmake --install "$work/kiv-$kind" >/dev/null
  # An installation holds the headers, the library, the package files and the pkg-config file.
  for f in include/kiv/kiv.h include/kiv/version.h include/kiv/exceptions.def \
    lib/cmake/kiv_common/kiv_commonConfig.cmake lib/cmake/kiv_common/kiv_commonConfigVersion.cmake \
    lib/pkgconfig/kiv_common.pc; do
    [ -f "$work/prefix-$kind/$f" ] || { echo "install is missing $f"; exit 1; }
  done
}

consume() {  # name, cmake arguments...: builds and runs the consumer
  local name=$1
  shift
  cmake -S tests/consumer -B "$work/use-$name" -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
  cmake --build "$work/use-$name" -j"$jobs" >/dev/null
  printf '%-26s' "$name:"
  "$work/use-$name/consumer"
}

install_kiv shared
install_kiv static -DKIV_STATIC=ON
consume find_package-shared -DKIV_ROUTE=package -DCMAKE_PREFIX_PATH="$root/$work/prefix-shared"
consume find_package-static -DKIV_ROUTE=package -DCMAKE_PREFIX_PATH="$root/$work/prefix-static"
PKG_CONFIG_PATH="$root/$work/prefix-shared/lib/pkgconfig" consume pkg-config-shared \
  -DKIV_ROUTE=pkgconfig -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath,$root/$work/prefix-shared/lib"
consume add_subdirectory -DKIV_ROUTE=subdirectory -DKIV_SOURCE_DIR="$root"
