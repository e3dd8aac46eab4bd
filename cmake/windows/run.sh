#!/usr/bin/env bash
# Runs a Windows program under Wine, within wine.sh. Now and then Wine ends at once, before the
# program has begun and without a word: then it is started once more.
set -uo pipefail

wine "$@" 2>&1 | {
  IFS= read -r line || exit 99
  printf '%s\n' "$line"
  exec cat
}
status=("${PIPESTATUS[@]}")
if [ "${status[0]}" != 0 ] && [ "${status[1]}" = 99 ]; then
  exec wine "$@"
fi
exit "${status[0]}"
