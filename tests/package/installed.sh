#!/bin/bash
# Installs the build into an empty folder, and builds and runs small hosts against the copy: one by pkg-config and by the
# CMake package, and the example of hosting.md, which brings a route into the installed data plane.
#
#   installed.sh BUILD CONSUMER COMPILER LIBDIR SANITIZERS DOCDIR
set -euo pipefail
build=$1
consumer=$2
compiler=$3
libdir=$4
flags=${5:+-fsanitize=$5}
docdir=$6

work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
prefix=$work/prefix
quietly() {
  "$@" >"$work/log" 2>&1 || { cat "$work/log"; echo "failed: $*"; exit 1; }
}
quietly cmake --install "$build" --prefix "$prefix"

# Nothing may be found in the build itself.
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
mkdir "$work/pkg-config"
# shellcheck disable=SC2046,SC2086
quietly "$compiler" $flags "$consumer/main.cpp" -o "$work/pkg-config/consumer" \
  $(pkg-config --cflags --libs vexl3agent) -Wl,-rpath,"$prefix/$libdir"

# Each type that an accessor of the agent or of a mount returns is a complete one. Of two that setters take there is no
# object yet.
headers=$prefix/include/vexl3
{
  echo '#include <VexL3AgentSmParts.h>'
  echo 'namespace VexL3Unicast {'
  sed -n -E 's/.*GANT_OWNED\( ([A-Za-z0-9:]+),.*/\1/p; s/.*Gant::Ptr< (const )?([A-Za-z0-9:]+) >.*/\2/p' \
    "$headers/VexL3AgentSm.h" "$headers/VexL3Mounts.h" | sort -u |
    grep -v -x -e Interface::DelayRestartMonitorSm -e Vxlan::BootStatus -e T | sed 's/.*/static_assert( sizeof( & ) > 0 );/'
  echo '} bool call( VexL3Unicast::AgentSm & agent ) {'
  echo 'return agent.route4Helper()->updateRoute( {}, {}, {}, {}, 0 ); }'
} >"$work/complete.cpp"
[ "$(grep -c static_assert "$work/complete.cpp")" -gt 150 ]
# shellcheck disable=SC2046,SC2086
quietly "$compiler" $flags -fsyntax-only "$work/complete.cpp" $(pkg-config --cflags vexl3agent)
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

# The example as it is installed.
quietly cmake -S "$prefix/$docdir/examples/host" -B "$work/example" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags"
quietly cmake --build "$work/example"
XDG_RUNTIME_DIR=$work "$prefix/bin/vexdp" --listen "unix:$work/dataplane" --counters "$work/counters" \
  >"$work/vexdp" 2>&1 &
until [ -S "$work/dataplane" ]; do kill -0 $! || { cat "$work/vexdp"; exit 1; }; done
said=$("$work/example/example_host" "unix:$work/dataplane")
if [ "$said" != "203.0.113.0/24 is in the data plane" ]; then
  echo "the example said '$said'"
  exit 1
fi

for file in "$docdir"/{hosting,ipsec}.md "$docdir/examples/router.yaml" etc/vexl3/router.yaml \
  lib/systemd/system/vexdp.service lib/sysusers.d/vexl3.conf; do
  [ -f "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
done
for program in "$prefix"/bin/*; do
  quietly "$program" --version
done
