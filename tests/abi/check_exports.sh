#!/usr/bin/env bash
# Compares the defined dynamic symbols of a shared object with the expected
# list: the library must export its entry points and nothing else.
set -euo pipefail
lib=$1 expected=$2
actual=$(nm -D --defined-only "$lib" | awk '{ $1 = ""; $2 = ""; sub(/^  /, ""); print }' | c++filt | sort)
if ! diff <(sort "$expected") <(printf '%s\n' "$actual"); then
  echo "exports of $lib differ from $expected (< expected, > actual)" >&2
  exit 1
fi
echo "exports match: $(wc -l < "$expected") symbols"
