#!/usr/bin/env bash
# demo.sh BUILD_DIR [FOLDER]: records four cameras for 20 s into a fresh folder (demo, unless told),
# shows the tree and what each file holds, and has FFmpeg decode the MPEG-2 recording.
set -euo pipefail
build=$1
folder=${2:-demo}
marker=$folder/.kelvo_demo

if [ -e "$folder" ]; then
  if [ ! -d "$folder" ] || { [ ! -e "$marker" ] && [ -n "$(ls -A "$folder")" ]; }; then
    echo "demo: $folder exists and isn't a demo's folder; name another one" >&2
    exit 2
  fi
  rm -rf "$folder"
fi
mkdir -p "$folder"
touch "$marker"

"$build/nvrhost" record --dir "$folder" --cameras 4 --seconds 20 \
  --codec h264,h265,mpeg2,mjpeg --audio aac,none,g711,none --report

echo
echo "FFmpeg on the MPEG-2 recording (-skip_initial_bytes 1978 begins at the first frame):"
"$build/nvrhost" show --csv "$folder" | awk -F, '$4 == "MPEG-2" { print $1, $5 }' |
  while read -r file written; do
    decoded=$(ffprobe -v error -f mpeg -skip_initial_bytes 1978 -select_streams v:0 -count_frames \
      -show_entries stream=nb_read_frames -of default=nokey=1:noprint_wrappers=1 "$file")
    echo "  $file: $written frames written, $decoded decoded"
    [ "$written" = "$decoded" ]
  done
