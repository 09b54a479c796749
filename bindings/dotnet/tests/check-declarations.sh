#!/usr/bin/env bash
# The .NET and VB6 declarations against the built x64 Varnik.dll: every declared name is an
# export, every C export is declared, and every .NET declaration says StdCall (what the x86
# DLL's exports are; x64 ignores it).
#   check-declarations.sh OBJDUMP Varnik.dll NativeMethods.cs Varnik.bas
set -euo pipefail
objdump="$1" dll="$2" native="$3" vb6="$4"
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

exports=$("$objdump" -p "$dll" | awk '/^\[Ordinal\/Name Pointer\] Table/ { on = 1; next }
                                      on && /^\t\[/ { print $NF; next } on && /^$/ { on = 0 }' |
          grep -v -e '^_Z' -e '^??' | sort -u)  # the C++ operators are not for these hosts
[ -n "$exports" ] || fail "no exports read from $dll"

imports=$(grep -o 'EntryPoint = "[A-Za-z]*"' "$native" | cut -d'"' -f2 | sort)
[ "$(grep -c '\[DllImport(' "$native")" -eq "$(wc -l <<<"$imports")" ] ||
  fail "a DllImport without an EntryPoint"
[ "$(grep -c '\[DllImport(' "$native")" -eq "$(grep -c 'CallingConvention = CallingConvention.StdCall' "$native")" ] ||
  fail "a DllImport without CallingConvention.StdCall"
[ -z "$(uniq -d <<<"$imports")" ] || fail "declared twice: $(uniq -d <<<"$imports")"
[ "$(uniq <<<"$imports")" = "$exports" ] ||
  fail ".NET declarations differ from the exports: $(diff <(uniq <<<"$imports") <(echo "$exports") | grep '^[<>]' | tr '\n' ' ')"

# VB6: the exported name is the Alias when there is one; both #If branches declare the same.
declares=$(tr -d '\r' <"$vb6" | grep -E '^\s*Public Declare' |
           sed -E 's/.*Function ([A-Za-z]+) Lib "([^"]+)"( Alias "([A-Za-z]+)")?.*/\2 \1 \4/')
grep -qv '^Varnik.dll ' <<<"$declares" && fail "a Declare not of Varnik.dll"
vb_names=$(awk '{ print ($3 != "" ? $3 : $2) }' <<<"$declares" | sort)
[ "$(grep -c PtrSafe <<<"$(tr -d '\r' <"$vb6" | grep 'Public Declare')")" -eq "$(( $(wc -l <<<"$declares") / 2 ))" ] ||
  fail "the VBA7 and VB6 branches differ"
[ "$(sort -u <<<"$vb_names")" = "$exports" ] ||
  fail "VB6 declarations differ from the exports: $(diff <(sort -u <<<"$vb_names") <(echo "$exports") | grep '^[<>]' | tr '\n' ' ')"

[ "$failures" -eq 0 ] && echo "$(wc -l <<<"$exports") exports declared for .NET and VB6" || exit 1
