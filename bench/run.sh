#!/usr/bin/env bash
# bench/run.sh BUILD_DIR [NAME]: all measurements, or the named one, and a table of what was wanted
# and what was measured. Works on the memory file system and leaves nothing there.
set -euo pipefail
server=$(cd "$(dirname "$0")/.." && pwd)/tests/s3/server.sh
build=$(cd "${1:?build folder}" && pwd)
only=${2:-}
names=(
  record small ffmpeg syscalls pending write realtime idle storage month scale listing slowdisk
  playback memory bucket
)
bench=$build/kelvo_bench
module=$build/kelvo.so

# A drive's path holds no "-".
memory=/dev/shm
[ -d "$memory" ] || memory=${TMPDIR:-/tmp}
work=$(mktemp -d "$memory/kelvobenchXXXXXX")
s3=
trap '[ -z "$s3" ] || "$server" stop "$s3"; rm -rf "$work"' EXIT
cd "$work"
export KELVO_BENCH_RESULTS=$work/results
: >"$KELVO_BENCH_RESULTS"

# Counts the system calls of a recording of $1 rounds on $2 cameras of $3 channels:
# "file-calls futex-calls frames".
count_calls() {
  local frames
  frames=$(strace -f -qq -c -o calls "$bench" "$module" trace "$@")
  awk -v frames="$frames" '
    $NF ~ /^(p?(read|write)(v2?|64)?|lseek|(open|openat|close|f?truncate|fallocate)|f(data)?sync|(new)?f?stat(at|fs|x)?|mkdir(at)?|unlink(at)?)$/ { file += $4 }
    $NF == "futex" { futex += $4 }
    END { print file + 0, futex + 0, frames }' calls
}

# What every further frame costs: a long recording less a short one, so that opening, closing and
# loading drop out.
syscalls_of() { # what cameras channels
  local short long
  short=$(count_calls 100 "$2" "$3")
  long=$(count_calls 500 "$2" "$3")
  echo "$short $long" | awk -v what="$1" '{
    frames = $6 - $3; file = ($4 - $1) / frames; futex = ($5 - $2) / frames
    printf "  %s, %d frames: %.2f file system calls and %.3f futex calls a frame\n",
      what, frames, file, futex
    printf "file system calls per frame, %s|%.2f|at most 0.2|%s\n", what, file,
      (file <= 0.2 ? "yes" : "NO") >>ENVIRON["KELVO_BENCH_RESULTS"]
  }'
}

syscalls() {
  syscalls_of "16 files of one channel" 16 1
  syscalls_of "1 file of 16 channels" 1 16
}

# Against an S3 server of its own, with its cache as servers have it.
bucket() {
  s3=$work/s3
  if ! KELVO_S3_CACHE=true "$server" start "$s3"; then
    echo "  left out: no S3 server could be started"
    echo "playback from a bucket|-|at least 1.00x|left out" >>"$KELVO_BENCH_RESULTS"
    return 0
  fi
  (
    # shellcheck disable=SC1091
    . "$s3/s3.env" # home, port, access, secret
    AWS_EC2_METADATA_DISABLED=true AWS_ENDPOINT_URL_S3=http://localhost:$port \
      AWS_ACCESS_KEY_ID=$access AWS_SECRET_ACCESS_KEY=$secret \
      KELVO_BENCH_S3_LOG=$home/log/client.rgw.log "$bench" "$module" bucket
  )
}

failed=0
for name in "${names[@]}"; do
  [ -z "$only" ] || [ "$only" = "$name" ] || continue
  echo "$name"
  case $name in
    syscalls | bucket) "$name" ;;
    *) "$bench" "$module" "$name" ;;
  esac || {
    echo "  $name could not be measured"
    failed=1
  }
done

if [ ! -s "$KELVO_BENCH_RESULTS" ]; then
  [ "$failed" = 1 ] || echo "no such measurement: $only (there are: ${names[*]})" >&2
  exit 1
fi
echo
{
  echo "figure|measured|wanted|met?"
  echo "------|--------|------|----"
  cat "$KELVO_BENCH_RESULTS"
} | column -t -s '|' -o ' | '
exit "$failed"
