#!/usr/bin/env bash
# Builds the libraries that kelvo links for 64-bit Windows, from Debian's own source packages, as
# static libraries: FOLDER/prefix. A second run with the same script, toolchain and folder returns
# at once. Needs the packages that ./dev windows installs.
#
#   cmake/windows/dependencies.sh FOLDER [JOBS]
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
[ $# -ge 1 ] || { sed -n '2,6s/^# \?//p' "$0"; exit 2; }
mkdir -p "$1"
work=$(cd "$1" && pwd)
jobs=${2:-$(nproc)}
prefix=$work/prefix
sources=$work/sources
host=x86_64-w64-mingw32

# wx-config holds absolute paths, so a folder that has moved is built again.
identity=$({ cat "$here/dependencies.sh" "$here/mingw64.cmake" "$here"/*/CMakeLists.txt
  echo "$work"; } | sha256sum)
stamp=$work/complete
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "$identity" ] && exit 0

# Runs one step with its output in a log of its own, which is shown if the step fails.
step() { # name command...
  local name=$1 log=$work/$1.log started=$SECONDS
  shift
  # In the background, since the first failing command wouldn't end it as a condition.
  (set -e; "$@") >"$log" 2>&1 </dev/null &
  if ! wait $!; then
    tail -n 40 "$log"
    echo "windows: $name failed; the whole log is $log" >&2
    exit 1
  fi
  echo "windows: $name ($((SECONDS - started)) s)"
}

# A private apt state whose only sources are the source packages of the machine's own Debian lines;
# the machine's other apt settings (proxies, keys) stay in force and /etc is not touched.
apt() { apt-get -c "$work/apt/conf" "$@"; }

fetch() {
  mkdir -p "$work/apt/parts" "$work/apt/lists/partial" "$sources"
  local debian=/etc/apt/sources.list.d/debian.sources
  if [ -f "$debian" ]; then
    sed 's/^Types:.*/Types: deb-src/' "$debian" >"$work/apt/parts/source.sources"
  else
    sed -n -E 's/^deb(-src)?[[:space:]]/deb-src /p' /etc/apt/sources.list | sort -u \
      >"$work/apt/parts/source.list"
  fi
  cat >"$work/apt/conf" <<END
Dir::Etc::sourcelist "/dev/null";
Dir::Etc::sourceparts "$work/apt/parts";
Dir::State::lists "$work/apt/lists";
Dir::Cache::pkgcache "";
Dir::Cache::srcpkgcache "";
APT::Sandbox::User "root";
END
  apt update
  cd "$sources"
  apt source wxwidgets3.2 tinyxml googletest curl
  # Only a few folders of Boost are built; none of Debian's patches for this system is in them.
  apt source --download-only boost1.74
  mkdir boost
  local library folders=()
  for library in filesystem system thread chrono date_time atomic; do
    folders+=("*/libs/$library/src")
  done
  tar -x -f boost1.74_*.orig.tar.* -C boost --strip-components=1 --wildcards "${folders[@]}"
}

# The folder of an unpacked source package.
unpacked() { find "$sources" -maxdepth 1 -type d -name "$1-*" | head -n 1; }

build_wx() {
  mkdir -p "$work/wx"
  cd "$work/wx"
  # Debian's tarball comes without the bundled zlib, expat and regex, which the base library can
  # do without.
  "$(unpacked wxwidgets3.2)/configure" --host=$host --prefix="$prefix" \
    CC=$host-gcc-posix CXX=$host-g++-posix CFLAGS=-O2 CXXFLAGS='-O2 -std=gnu++17' \
    --disable-gui --disable-shared --disable-debug --disable-sockets --disable-webrequest \
    --without-regex --without-zlib --without-expat --without-liblzma
  make -j "$jobs"
  make install
  # Forgotten by the installation of the base library alone.
  cp "$(unpacked wxwidgets3.2)/include/wx/msw/init.h" "$prefix/include/wx-3.2/wx/msw/"
}

build_with_cmake() { # name source options...
  local folder=$work/$1 source=$2
  shift 2
  KELVO_WINDOWS_PREFIX=$prefix cmake -G Ninja -S "$source" -B "$folder" \
    -DCMAKE_TOOLCHAIN_FILE="$here/mingw64.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" "$@"
  cmake --build "$folder" -j "$jobs"
  cmake --install "$folder"
}

build_boost() {
  mkdir -p "$prefix/include" "$prefix/lib"
  # The headers are the same on every system; a folder that held all of /usr/include would not do.
  ln -sfn /usr/include/boost "$prefix/include/boost"
  build_with_cmake boost-libraries "$here/boost" -DBOOST_SOURCE="$sources/boost"
}

build_tinyxml() {
  build_with_cmake tinyxml "$here/tinyxml" -DTINYXML_SOURCE="$(unpacked tinyxml)"
}

build_googletest() { build_with_cmake googletest "$(unpacked googletest)"; }

# HTTP and HTTPS with Windows' own TLS.
build_curl() {
  build_with_cmake curl "$(unpacked curl)" -DBUILD_SHARED_LIBS=OFF -DBUILD_CURL_EXE=OFF \
    -DBUILD_TESTING=OFF -DHTTP_ONLY=ON -DCURL_USE_SCHANNEL=ON -DCURL_USE_LIBSSH2=OFF \
    -DCURL_ZLIB=OFF -DENABLE_MANUAL=OFF
}

echo "windows: building the libraries in $work; this is done once"
rm -rf "$prefix" "$sources" "$work/apt" "$stamp"
for name in wx boost-libraries tinyxml googletest curl; do rm -rf "${work:?}/$name"; done
step fetch fetch
step boost build_boost
step tinyxml build_tinyxml
step googletest build_googletest
step curl build_curl
step wxwidgets build_wx
echo "$identity" >"$stamp"
