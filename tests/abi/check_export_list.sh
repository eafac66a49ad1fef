#!/usr/bin/env bash
# Compares the export list (<folder>/exports.txt for each library folder)
# with the KT_API declarations of the public headers: a name declared but not
# exported, or exported but not declared, is a mistake in one of them.
set -euo pipefail
source_dir=$1
shift
declared=$(cat "$source_dir"/include/*.h |
  grep -v '^[[:space:]]*#' | tr '\n' ' ' |
  sed 's|/\*[^*]*\*\+\([^/*][^*]*\*\+\)*/| |g' |
  grep -o 'KT_API[^;(\[{]*' | awk '{print $NF}' | sort -u)
listed=$(for folder in "$@"; do cat "$source_dir/$folder/exports.txt"; done |
  grep -E '^[A-Za-z_][A-Za-z0-9_]*$' | sort -u)
if ! diff <(printf '%s\n' "$declared") <(printf '%s\n' "$listed"); then
  echo "KT_API declarations ('<') and the export lists ('>') differ" >&2
  exit 1
fi
echo "export lists: $(printf '%s\n' "$listed" | wc -l) names, each declared with KT_API"
