#!/usr/bin/env bash
# A client program linked against an import library takes its functions
# from vorn.dll by name: check_client.sh OBJDUMP PROGRAM
set -euo pipefail
dump=$("$1" -p "$2")
if ! grep -q 'DLL Name: vorn.dll' <<<"$dump"; then
  echo "$2 does not import vorn.dll"
  exit 1
fi
# The names it imports are the plain ones of the export table.
imports=$(awk '/DLL Name: vorn.dll/ { inside = 1; next } /DLL Name:/ { inside = 0 }
  inside && $1 ~ /^[0-9a-f]+$/ && $3 ~ /^[A-Za-z_]/ { print $3 }' <<<"$dump")
for name in vorn_io_format_error PrinterCreatorS WriteData PrinterDestroy vorn_io_port_creator; do
  grep -qx "$name" <<<"$imports" || { echo "$2 does not import $name from vorn.dll"; exit 1; }
done
echo "$2 imports $(wc -l <<<"$imports") functions from vorn.dll"
