#!/usr/bin/env bash
# Runs the example host on a stream in a fresh folder and compares what came back with what went in.
#
#   tests/examples/host.sh FOLDER PLUGIN PROGRAM...
set -euo pipefail
folder=$1 plugin=$2
shift 2
rm -rf "$folder"
mkdir -p "$folder/drives/disk1"
cd "$folder"

noise() { head -c "$1" /dev/urandom | tr '\000' '\377'; } # holds no start code
for number in {0..99}; do
  if ((number % 20 == 0)); then
    printf '\0\0\0\1\x67'; noise 12      # parameter sets belong to the key frame
    printf '\0\0\0\1\x68'; noise 5
    printf '\0\0\1\x65\x80'; noise 70000 # longer than a packet's length field can tell
    printf '\0\0\1\x65\x01'; noise 300   # its second slice
  else
    printf '\0\0\0\1\x41\x80'; noise $((number * 7 + 1))
  fi
done >given
"$@" "$plugin" given back | tee log
grep -q '^100 frames given, 100 came back, 0 of them wrong; 0 buffers not released' log
cmp given back
