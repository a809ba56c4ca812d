#!/usr/bin/env bash
# Reads a DLL's export and import tables back with objdump -p:
#   check_dll.sh OBJDUMP DLL EXPECTED_EXPORTS
# Every function of EXPECTED_EXPORTS ("ordinal name" lines) must be exported
# at its ordinal under its plain name (no cdecl underscore, no stdcall @n),
# nothing else may be exported, and the DLL may import only Windows' own
# DLLs, so that it runs without any mingw runtime DLL beside it.
set -euo pipefail
objdump=$1
dll=$2
expected=$3

dump=$("$objdump" -p "$dll")
base=$(awk '/^Ordinal Base/ { print $3; exit }' <<<"$dump")
[ -n "$base" ] || { echo "$dll: no export table"; exit 1; }

# "[Ordinal/Name Pointer] Table" rows are "[ index] name", the index counted
# from the ordinal base.
actual=$(awk -v base="$base" '
  /^\[Ordinal\/Name Pointer\] Table/ { inside = 1; next }
  inside && /^[[:space:]]*\[[[:space:]]*[0-9]+\]/ {
    line = $0; sub(/^[[:space:]]*\[[[:space:]]*/, "", line)
    index_ = line; sub(/\].*/, "", index_)
    name = line; sub(/^[0-9]+\][[:space:]]*/, "", name)
    print index_ + base, name; next
  }
  inside && NF == 0 { inside = 0 }' <<<"$dump" | sort -n)
wanted=$(grep -v '^#' "$expected" | sort -n)

status=0
if [ "$actual" != "$wanted" ]; then
  echo "$dll: export table differs from $expected (< expected, > found):"
  diff <(echo "$wanted") <(echo "$actual") || true
  status=1
fi

# Windows' own DLLs, which every supported Windows version has.
system_dlls='^(kernel32|msvcrt|ws2_32|gdiplus|gdi32|user32|advapi32|setupapi|cfgmgr32|ole32)\.dll$'
imports=$(awk '/DLL Name:/ { print $3 }' <<<"$dump")
[ -n "$imports" ] || { echo "$dll: no import table"; status=1; }
for name in $imports; do
  if ! [[ ${name,,} =~ $system_dlls ]]; then
    echo "$dll: imports $name, which is not a Windows system DLL"
    status=1
  fi
done
[ $status -eq 0 ] && echo "$dll: $(wc -l <<<"$actual") exports at their ordinals; imports:" $imports
exit $status
