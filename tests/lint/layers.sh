#!/usr/bin/env bash
# Checks what the compiler doesn't: includes between layers go down only, and nothing outside
# src/platform touches the operating system. Prints each offence; fails if there is one.
set -u
root=${1:?source folder}
cd "$root" || exit 2
layers=(platform host media archiving tree storage record search shell)
bad=0
offence() { echo "$1"; bad=1; }

rank() { # position of a layer in the list, or nothing
  local i
  for i in "${!layers[@]}"; do [ "${layers[$i]}" = "$1" ] && echo "$i"; done
}

while IFS=: read -r file line text; do
  layer=${file#src/}; layer=${layer%%/*}
  target=$(sed -E 's/.*"([a-z]+)\/.*/\1/' <<<"$text")
  from=$(rank "$layer"); to=$(rank "$target")
  [ -z "$to" ] && continue
  if [ "$to" -gt "$from" ] || [ "$layer/$target" = search/record ] ||
    [ "$layer/$target" = archiving/media ]; then
    offence "$file:$line: $layer must not include $target"
  fi
done < <(grep -rnE '#include "[a-z]+/' src)

system='#[[:space:]]*(if|ifdef|ifndef|elif).*(_WIN32|__linux__|__unix__|_MSC_VER)|#include <(windows|winsock2?|io|direct|unistd|fcntl|dirent|sys/.*|pthread|dlfcn|poll|signal|sched|spawn|netdb|arpa/.*)\.h>'
clock='system_clock|steady_clock|high_resolution_clock|[^A-Za-z_:>.]time\(|gettimeofday|clock_gettime|sleep_(for|until)|[^A-Za-z_](u|nano)?sleep\(|wxDateTime::(U?Now|Today)'
while IFS=: read -r file line text; do
  offence "$file:$line: belongs to src/platform: $text"
done < <(grep -rnE "$system|$clock" src --include='*.cpp' --include='*.h' | grep -v '^src/platform/')

# What a system's folder holds is the platform's own business.
while IFS=: read -r file line text; do
  offence "$file:$line: use platform/Platform.h: $text"
done < <(grep -rnE '#include "platform/(posix|win32)/' src | grep -v '^src/platform/')

# Boost's file calls have a limit, a conversion and errors of their own.
while IFS=: read -r file line text; do
  offence "$file:$line: use platform/Files.h: $text"
done < <(grep -rnE '#include <(boost/filesystem|wx/(dir|file))' src | grep -vE '^src/(platform|archiving)/')

# What prints a broken number takes the decimal point of the process's locale.
while IFS=: read -r file line text; do
  offence "$file:$line: use FormatFixed or SetDouble: $text"
done < <(grep -rnE '"[^"]*%[-+ #0-9.]*[aefgAEFG]([^a-zA-Z].*)?"|SetDoubleAttribute' src)

[ "$bad" = 0 ] && echo "layers and seams: clean"
exit $bad
