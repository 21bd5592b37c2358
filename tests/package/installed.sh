#!/bin/bash
# Installs the build into an empty folder, and builds and runs a small host against the copy: once by pkg-config, once by
# the CMake package.
#
#   installed.sh BUILD CONSUMER COMPILER LIBDIR SANITIZERS
set -euo pipefail
build=$1
consumer=$2
compiler=$3
libdir=$4
flags=${5:+-fsanitize=$5}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
quietly() {
  "$@" >"$work/log" 2>&1 || { cat "$work/log"; echo "failed: $*"; exit 1; }
}
quietly cmake --install "$build" --prefix "$prefix"

# Nothing may be found in the build itself.
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
mkdir "$work/pkg-config"
# shellcheck disable=SC2046,SC2086
quietly "$compiler" -std=c++20 $flags "$consumer/main.cpp" -o "$work/pkg-config/consumer" \
  $(pkg-config --cflags --libs vexl3agent) -Wl,-rpath,"$prefix/$libdir"
quietly cmake -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_CXX_FLAGS="$flags"
quietly cmake --build "$work/cmake"

for way in pkg-config cmake; do
  used=$(ldd "$work/$way/consumer" | sed -n 's/.*libVexL3Agent.so.0 => \([^ ]*\).*/\1/p')
  if [ "$(realpath "$used")" != "$(realpath "$prefix/$libdir/libVexL3Agent.so.0")" ]; then
    echo "$way: the host runs with '$used'"
    exit 1
  fi
  said=$("$work/$way/consumer")
  if [ "$said" != "constructed, cell 7" ]; then
    echo "$way: the host said '$said'"
    exit 1
  fi
done

for program in "$prefix"/bin/*; do
  quietly "$program" --version
done
