#!/usr/bin/env bash
# tests/lint/ratio.sh ROOT: how many lines of tests there are beside those of code. Fails above the
# limit: a new test takes the place of another, or rests on a fixture that is there.
set -euo pipefail
cd "${1:?root of the repository}"
limit=36 # per cent

lines() { find "$@" -name '*.cpp' -o -name '*.h' | sort | xargs cat | wc -l; }
code=$(lines src include tools compat)
tests=$(lines tests fuzz)
percent=$(((tests * 100 + code / 2) / code))
echo "lines of tests: $tests, of code: $code, $percent %"
if ((tests * 100 > limit * code)); then
  echo "more than $limit %" >&2
  exit 1
fi
