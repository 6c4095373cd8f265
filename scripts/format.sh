#!/usr/bin/env bash
# Formats every tracked C++ file with clang-format and the project's .clang-format.
#
#   scripts/format.sh            rewrite the files in place
#   scripts/format.sh --check    change nothing; name each file that is not formatted and
#                                exit 1 when there is one
#   scripts/format.sh FILE...    rewrite only these files
#
# The output of clang-format differs between its major versions, so CLANG_FORMAT may name
# the one to use (default clang-format, the Debian package the set-up installs).
set -euo pipefail
cd "$(dirname "$0")/.."

formatter=${CLANG_FORMAT:-clang-format}
usage() { sed -n '2,10p' "$0" | sed 's/^# \{0,1\}//'; }

check=false
files=()
for argument in "$@"; do
  case "$argument" in
    -h|--help) usage; exit 0 ;;
    --check) check=true ;;
    -*) echo "format.sh: unknown option $argument (try --help)" >&2; exit 2 ;;
    *) files+=("$argument") ;;
  esac
done
command -v "$formatter" >/dev/null || { echo "format.sh: $formatter is not installed (apt-get install clang-format)" >&2; exit 2; }
if ((${#files[@]} == 0)); then
  mapfile -t files < <(git ls-files '*.cpp' '*.h')
fi

if ! $check; then
  "$formatter" -i --style=file "${files[@]}"
  exit 0
fi

unformatted=0
for file in "${files[@]}"; do
  if ! "$formatter" --style=file --dry-run --Werror "$file" >/dev/null 2>&1; then
    echo "not formatted: $file"
    unformatted=$((unformatted + 1))
  fi
done
if ((unformatted)); then
  echo "$unformatted file(s) not formatted; scripts/format.sh rewrites them" >&2
  exit 1
fi
echo "all ${#files[@]} C++ files formatted"
