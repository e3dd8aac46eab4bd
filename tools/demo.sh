#!/usr/bin/env bash
# demo.sh BUILD_DIR [FOLDER]: records four cameras into a fresh folder (demo, unless told), lists
# them, plays everything back and compares every frame, exports one to MP4, makes a contact sheet;
# then holds the files against the format's rules and has FFmpeg decode the MPEG-2 recording as it
# lies on disk. Ends with 1 if any check failed.
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

failed=0
"$build/nvrhost" demo --dir "$folder" || failed=1

echo
echo "The files against the rules of their format:"
"$build/psinfo" check "$folder/drives" || failed=1

echo
echo "FFmpeg on the MPEG-2 recording (-skip_initial_bytes 1978 begins at the first frame):"
while read -r file written; do
  decoded=$(ffprobe -v error -f mpeg -skip_initial_bytes 1978 -select_streams v:0 -count_frames \
    -show_entries stream=nb_read_frames -of default=nokey=1:noprint_wrappers=1 "$file")
  echo "  $file: $written frames written, $decoded decoded"
  [ "$written" = "$decoded" ] || failed=1
done < <("$build/nvrhost" show --csv "$folder" | awk -F, '$4 == "MPEG-2" { print $1, $5 }')

[ "$failed" = 0 ] || echo "demo: a check failed" >&2
exit "$failed"
