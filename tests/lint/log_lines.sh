#!/usr/bin/env bash
# Holds the table of log lines in docs/operation.md against the source: every line of level 50 and
# above stands there once with its level, and no other. Conversions read as "…" there. Prints each
# difference; fails if there is one.
set -u
cd "${1:?source folder}" || exit 2

in_source() {
  find src compat -name '*.cpp' -o -name '*.h' | sort | xargs perl -0777 -ne '
    my %level = (Warning => 50, Error => 75, Critical => 100);
    while (/\bLogPrintf\(\s*([^,;{]*?),\s*((?:"(?:[^"\\]|\\.)*"\s*|PRI\w+\s*)*)/g) {
      my ($name, $text) = ($1, $2);
      next if $name =~ /\bLog(Trace|Info)$/ || $name =~ /^(int level|const char)/;
      if ($name !~ /\bLog(Warning|Error|Critical)$/ || $text eq "") {
        print "$ARGV: a log line without a plain level and text: $name\n";
        next;
      }
      my $value = $level{$1};
      $text =~ s/"\s*PRI\w+\s*"/d/g;
      $text =~ s/"\s*"//g;
      $text =~ s/^"|"\s*$//g;
      $text =~ s/%[-+ #0]*[0-9]*(\.[0-9]+)?(hh|ll|[hlzt])?[a-zA-Z]/…/g;
      print "$value $text\n";
    }' | sort -u
}

in_page() { sed -n -E 's/^\| (50|75|100) \| `([^`]*)` \|.*/\1 \2/p' docs/operation.md | sort; }

if differences=$(diff <(in_source) <(in_page)); then
  echo "log lines: all told"
else
  sed -n -E 's/^< /not in docs\/operation.md: /p; s/^> /not in the source: /p' <<<"$differences"
  exit 1
fi
