#!/bin/bash
# The benchmark runs to its end in small, and every line that it promises is in the table.
#
#   smoke.sh PROGRAM
set -euo pipefail
table=$("$1" --quick)
failed=0
expect() {
  local found
  found=$(grep -cE "$2" <<<"$table") || true
  if [ "$found" != "$1" ]; then
    echo "$found lines, not $1, of: $2"
    failed=1
  fi
}
for way in 'agent alone' 'end to end' fed floor; do
  for order in shuffled sorted; do
    # Five pieces of work, and two kinds of lone changes.
    expect 7 "^(add|change|move|delete) .* $order +$way "
  done
done
if grep -q 'The kernel could not be measured' <<<"$table"; then
  expect 3 'not measured'
else
  expect 10 ' kernel +[0-9]'
  expect 0 'not measured'
fi
expect 2 '^library, .* bytes a route$'
expect 2 '^data plane killed, from its restart .* ms$'
expect 4 '^daemon.* (ms|bytes a route)$'
[ $failed = 0 ] || echo "$table"
exit $failed
