#!/usr/bin/env bash
# Compares the dynamic symbols that the library defines with the reviewed
# list: nothing of the implementation may leak, and nothing listed may miss.
set -euo pipefail
library=$1
expected=$2
nm=${3:-nm}  # the target's nm for a foreign library
actual=$("$nm" -D --defined-only "$library" | awk '{print $3}' | sed 's/@.*//' | grep -v '^$' | sort -u)
if ! diff <(sort -u "$expected") <(printf '%s\n' "$actual"); then
  echo "exported symbols differ from $expected ('<' listed only, '>' exported only)" >&2
  exit 1
fi
echo "exported symbols: $(printf '%s\n' "$actual" | wc -l) names, as listed"
