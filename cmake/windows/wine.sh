#!/usr/bin/env bash
# Runs a command whose Windows programs find a small machine of their own under Wine: a prefix in
# FOLDER with the system on C:, temporary files on T: and one fixed drive for recordings, R:.
# T: and Wine's Z: (the whole file system of this machine) are made network drives, which the
# plug-in leaves alone. C: is fixed as well, but the system's, which is off beside another one.
#
#   cmake/windows/wine.sh FOLDER command...
set -euo pipefail

[ $# -ge 2 ] || { sed -n '2,8s/^# \?//p' "$0"; exit 2; }
mkdir -p "$1"
folder=$(cd "$1" && pwd)
shift

export WINEPREFIX=$folder/prefix WINEARCH=win64 WINEDEBUG=-all
# winedbg would turn some crashes into an exit code of 0.
export WINEDLLOVERRIDES='mscoree=;mshtml=;winemenubuilder.exe=;winedbg.exe='
export TZ=Europe/Berlin KELVO_TEST_DRIVE='R:\'
# Each call of the file system costs many times what it does without Wine.
export KELVO_RETENTION_FILES=${KELVO_RETENTION_FILES:-200}
unset DISPLAY WAYLAND_DISPLAY

# A server that outlives its last program: without it each test would start one.
quietly() { "$@" </dev/null >>"$folder/wine.log" 2>&1; }
stop() { quietly wineserver -k || true; }
trap stop EXIT

stop
mkdir -p "$folder/temporary" "$folder/recordings"
if [ ! -f "$folder/ready" ]; then
  rm -rf "$WINEPREFIX"
  for letter in z t; do
    quietly wine reg add 'HKLM\Software\Wine\Drives' /v $letter: /d network /f
  done
  for name in TMP TEMP; do
    quietly wine reg add 'HKCU\Environment' /v $name /d 'T:\' /f
  done
  quietly wineserver -w
  touch "$folder/ready"
fi
# The links are read when the server starts.
ln -sfn "$folder/temporary" "$WINEPREFIX/dosdevices/t:"
ln -sfn "$folder/recordings" "$WINEPREFIX/dosdevices/r:"
quietly wineserver -p
# The services that the first program starts would hold on to a test's output.
quietly wine cmd /c exit
"$@"
