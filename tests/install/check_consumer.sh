#!/usr/bin/env bash
# Installs the library from BUILD_DIR into a temporary prefix and builds a
# small program against it twice, through the CMake package and through
# pkg-config; both must print the luminance the built-in gives.
#   check_consumer.sh BUILD_DIR CONSUMER_SOURCE_DIR CXX
set -euo pipefail
build=$1 src=$2 cxx=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" --component library >/dev/null
# The weighted sum of (200, 100, 50), rounded to the nearest byte.
expected="gray 124"

cmake -S "$src" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/cmake" >/dev/null
got=$("$work/cmake/consumer")
[[ "$got" == "$expected" ]] || { echo "find_package build printed '$got', expected '$expected'"; exit 1; }
echo "find_package: $got"

pcdir=$(dirname "$(find "$prefix" -name qzimages.pc)")
flags=$(PKG_CONFIG_PATH=$pcdir pkg-config --cflags --libs qzimages)
libdir=$(PKG_CONFIG_PATH=$pcdir pkg-config --variable=libdir qzimages)
# shellcheck disable=SC2086
"$cxx" -std=c++17 "$src/main.cpp" -o "$work/consumer_pc" $flags -Wl,-rpath,"$libdir"
got=$("$work/consumer_pc")
[[ "$got" == "$expected" ]] || { echo "pkg-config build printed '$got', expected '$expected'"; exit 1; }
echo "pkg-config: $got"
