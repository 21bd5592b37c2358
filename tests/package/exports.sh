#!/bin/bash
# The names that a built library shows are exactly the listed ones, and its soname is the one that hosts are linked to.
#
#   exports.sh LIBRARY LIST
#
# LIST has a name a line, without arguments. One that begins with "?" may be missing.
set -euo pipefail
library=$1
list=$2
export LC_ALL=C

failed=0
soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ "$soname" != libVexL3Agent.so.0 ]; then
  echo "soname: $soname"
  failed=1
fi

names=$(nm -D --defined-only -C "$library" | sed -E 's/^[0-9a-f]* [A-Za-z] //; s/\[abi:[a-z0-9]*\]//; s/\(.*//' |
  sort -u)
allowed=$(sed -e '/^#/d' -e '/^$/d' -e 's/^?//' "$list" | sort -u)
required=$(sed -e '/^#/d' -e '/^$/d' -e '/^?/d' "$list" | sort -u)
while read -r name; do
  [ -z "$name" ] || { echo "shown, and not listed: $name"; failed=1; }
done < <(comm -23 <(echo "$names") <(echo "$allowed"))
while read -r name; do
  [ -z "$name" ] || { echo "listed, and not shown: $name"; failed=1; }
done < <(comm -13 <(echo "$names") <(echo "$required"))
exit $failed
