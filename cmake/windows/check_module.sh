#!/usr/bin/env bash
# Checks that a plug-in for Windows exports its eight functions by their plain names and nothing
# else, and needs only libraries that Windows itself has: those in SYSTEM32.
#
#   cmake/windows/check_module.sh MODULE SYSTEM32
set -euo pipefail

module=$1 system=$2
wanted='Close IOCTL Load Open Read Seek Unload Write'
headers=$(x86_64-w64-mingw32-objdump -p "$module")

exports=$(sed -n '/Ordinal\/Name Pointer/,/^$/s/^.*\[ *[0-9]*\] \([^ ]*\)$/\1/p' <<<"$headers" | sort | xargs)
if [ "$exports" != "$wanted" ]; then
  echo "$module exports: $exports" >&2
  exit 1
fi
needed=$(sed -n 's/^.*DLL Name: //p' <<<"$headers" | sort)
[ -n "$needed" ] || { echo "$module: no imports found" >&2; exit 1; }
for library in $needed; do
  if [ -z "$(find "$system" -maxdepth 1 -iname "$library")" ]; then
    echo "$module needs $library, which isn't part of Windows" >&2
    exit 1
  fi
done
echo "$(basename "$module") exports" $exports
echo "$(basename "$module") needs" $needed
