#!/usr/bin/env bash
# The shared library exports the C API and nothing else: every exported name
# is declared in the public header, and no C++ symbol leaks out.
set -euo pipefail
library=$1
header=$2
exported=$(nm -D --defined-only "$library" | awk '$2 == "T" { print $3 }' | sort)
[ -n "$exported" ] || { echo "no exported functions in $library"; exit 1; }
status=0
for name in $exported; do
  if ! grep -Eq "VORN_CALL $name\(" "$header"; then
    echo "exported but not in the public header: $name"
    status=1
  fi
done
echo "$(echo "$exported" | wc -l) exported functions"
exit $status
