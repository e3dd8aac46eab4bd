#!/usr/bin/env bash
# bench/powercut/run.sh BUILD_DIR [CUTS] [FILE SYSTEMS...]: cuts the power of a recorder, as far as
# a disk can tell. Eight cameras record in real time to a file system on a loop device, whose settings
# are saved all the while. At random moments the device's image is cloned (one atomic step of the
# XFS that holds it, so that the clone is what a disk held that writes in order), mounted, and the
# plug-in started on it: it heals, plays everything, and all that was recorded 10 s before the cut
# must be there, byte for byte. Needs root, and leaves nothing behind.
set -euo pipefail
build=$(cd "${1:?build folder}" && pwd)
cuts=${2:-200}
kinds=("${@:3}")
[ ${#kinds[@]} != 0 ] || kinds=(ext4 xfs)
program=$build/kelvo_powercut
module=$build/kelvo.so
[ "$(id -u)" = 0 ] || { echo "needs root, for mount" >&2; exit 2; }

memory=/dev/shm
[ -d "$memory" ] || memory=${TMPDIR:-/tmp}
work=$(mktemp -d "$memory/kelvocutXXXXXX")
recorders=()
finish() {
  for pid in "${recorders[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
  wait || true
  for kind in "${kinds[@]}"; do
    umount "$work/copy.$kind" 2>/dev/null || true
    umount "$work/disk.$kind" 2>/dev/null || true
  done
  umount "$work/outer" 2>/dev/null || true
  rm -rf "$work"
}
trap finish EXIT

# What holds the images: a file system that clones files.
truncate -s 16G "$work/outer.img"
mkfs.xfs -q -m reflink=1 "$work/outer.img"
mkdir "$work/outer"
mount -o loop "$work/outer.img" "$work/outer"

begin() { # kind
  local image=$work/outer/$1.img disk=$work/disk.$1
  truncate -s 40G "$image"
  case $1 in
    ext4) mkfs.ext4 -q -N 20000 "$image" ;;
    *) mkfs."$1" -q "$image" ;;
  esac
  mkdir "$disk" "$work/copy.$1"
  mount -o loop "$image" "$disk"
  mkdir -p "$disk/drives/a"
  sync -f "$disk"
  (cd "$disk" && exec "$program" record "$module" "$work/ledger.$1") &
  recorders+=($!)
}

check() { # kind number
  local copy=$work/outer/copy.$1 mounted=$work/copy.$1 options=loop
  [ "$1" != xfs ] || options=loop,nouuid # the original is mounted, too
  if mount -o "$options" "$copy" "$mounted"; then
    echo "$1 $2: $(cd "$mounted" && "$program" check "$module" "$work/ledger.$1" "$work/about.$1")"
    umount "$mounted"
  else
    echo "$1 $2: BAD can't be mounted"
  fi
  rm "$copy"
}

for kind in "${kinds[@]}"; do begin "$kind"; done
sleep 5
failed=0
log=$work/log
for ((number = 1; number <= cuts; ++number)); do
  kind=${kinds[number % ${#kinds[@]}]}
  sleep "$((RANDOM % 4)).$((RANDOM % 900 + 100))"
  "$program" cut "$work/ledger.$kind" "$work/outer/$kind.img" "$work/outer/copy.$kind" \
    "$work/about.$kind"
  check "$kind" "$number" | tee -a "$log"
done
failed=$(grep -c BAD "$log" || true)
awk '{ for (i = 1; i <= NF; ++i) {
    value = substr($i, index($i, ":") + 1) + 0
    if ($i ~ /^lost:/ && value > most) most = value
    if ($i ~ /^healed:/) healed += value
    if ($i ~ /^frames:/) frames += value } }
  END { printf "%d cuts, %d frames played, %d indexes healed, at most %.2f s lost\n",
    NR, frames, healed, most }' "$log"
echo "$failed of $cuts cuts broke the promise"
[ "$failed" = 0 ]
