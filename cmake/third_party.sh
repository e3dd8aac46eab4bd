#!/usr/bin/env bash
# Prints docs/third-party.md: the libraries of each shipped binary with version and licence, told by
# the shared libraries that it needs, the archives that the linker took and the headers that were
# compiled into it. Knows Debian's packages, and those that cmake/windows/dependencies.sh built.
#
#   cmake/third_party.sh BUILD_FOLDER
set -euo pipefail
[ $# = 1 ] || { sed -n '2,6s/^# \?//p' "$0"; exit 2; }
cd "$1"

licence() { # source package
  case $1 in
    boost1.74) echo 'Boost Software License 1.0' ;;
    cli11) echo 'BSD 3-Clause' ;;
    curl) echo 'curl (MIT/X derivate)' ;;
    ffmpeg) echo 'GPL 2 or later, as Debian builds it' ;;
    gcc-12 | gcc-mingw-w64) echo 'GPL 3 with the GCC Runtime Library Exception' ;;
    glibc) echo 'LGPL 2.1 or later' ;;
    mingw-w64) echo 'Zope Public License 2.1, winpthreads MIT; parts in the public domain' ;;
    tinyxml) echo 'zlib' ;;
    wxwidgets3.2) echo 'wxWindows Library Licence 3.1 (LGPL 2 with a linking exception)' ;;
    *) echo "third_party.sh: no licence known for $1" >&2; return 1 ;;
  esac
}

# "package version" of the source that each file on standard input comes from.
sources_of() {
  local files=() file own
  while read -r file; do
    case $file in
      "$PWD"/deps/prefix/*)
        case ${file##*/prefix/} in
          *wx*) own=wxwidgets3.2 ;;
          *boost*) own=boost1.74 ;;
          *tiny*) own=tinyxml ;;
          *curl*) own=curl ;;
          *) echo "third_party.sh: whose is $file?" >&2; return 1 ;;
        esac
        basename -s .dsc deps/sources/"${own}"_*.dsc | tr _ ' '
        ;;
      *) files+=("$file") ;;
    esac
  done
  [ ${#files[@]} = 0 ] && return
  dpkg-query -S "${files[@]}" | sed 's/: .*//; s/, /\n/g' | sort -u |
    xargs dpkg-query -W -f='${source:Package} ${source:Version}\n'
}

# The files behind shared libraries; the packages know those of /lib below /usr or not.
shared_libraries() { # binary
  local needed
  needed=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
  ldd "$1" | awk '{ print $1, $3 ~ /^\// ? $3 : $1 }' | while read -r name path; do
    grep -qxF "${name##*/}" <<<"$needed" || continue
    path=$(realpath "$path")
    dpkg-query -S "$path" >/dev/null 2>&1 || path=${path#/usr}
    echo "$path"
  done
}

# What the linker took out of archives, by its map: ARCHIVE(OBJECT).
linked() { # binary
  sed '/^Memory Configuration/,$d' "$(target_of "$1").link" | sed -n 's/^\([^ ].*\.a([^)]*)\).*/\1/p' | sort -u
}

archives() { linked "$1" | sed -n 's/^\(.*\.a\)(.*/\1/p' | sort -u | xargs -r realpath; }

headers() { # binary
  # lib/libkelvo_NAME.a(Object) is CMakeFiles/kelvo_NAME.dir/PATH/Object.
  linked "$1" | sed -n -E 's/^(.*\/)?lib(kelvo_[a-z]+)\.a\((.*)\)$/\2 \3/p' |
    awk 'NR == FNR { taken[$1 " " $2]; next }
      { owner = $0; sub(/.*CMakeFiles\//, "", owner); sub(/\.dir\/.*/, "", owner)
        object = $0; sub(/.*\//, "", object)
        if (owner == self || (owner " " object) in taken) print }' self="$(target_of "$1")" - \
      <(ninja -t inputs "$1" | grep -E '\.(o|obj)$') |
    xargs ninja -t deps | sed -n 's/^    //p' | sort -u | xargs realpath
}

target_of() { basename -s .so "$(basename -s .dll "$1")"; }

foreign() { grep -E "^(/usr|$PWD/deps)/" | sort -u; }

table() { # "package version how" lines
  sort -u | awk '{ how[$1 " " $2] = $3 } END { for (one in how) print one, how[one] }' | sort |
    while read -r package version how; do
      [ "$package" = linux ] && continue # headers of the system interface
      terms=$(licence "$package")
      printf '| %s | %s | %s | %s |\n' "$package" "$version" "$terms" "$how"
    done
}

cat <<'END'
# Third-party libraries

Made by the build from what it linked. *shared*: the library is needed on the machine. *inside*: it,
or code of its headers alone, is part of the file. The names are those of Debian's source packages,
whose `debian/copyright` has the full texts of the licences.
END
for binary in kelvo.so nvrhost psinfo kelvo.dll; do
  [ -f "$binary" ] || continue
  printf '\n## %s\n\n| Library | Version | Licence | How |\n|---|---|---|---|\n' "$binary"
  {
    case $binary in
      *.dll) archives "$binary" | foreign | sources_of | sed 's/$/ inside/' ;;
      *) shared_libraries "$binary" | sources_of | sed 's/$/ shared/' ;;
    esac
    headers "$binary" | foreign | sources_of | sed 's/$/ inside/'
  } | table
done
