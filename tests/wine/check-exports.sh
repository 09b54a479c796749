#!/usr/bin/env bash
# Checks the export table, imports and version record of the built Windows DLLs against the
# .def files and the Linux export list:
#   - exactly the names of the .def file are exported, undecorated (no "@n", no "_" added);
#   - the names that are one routine by design share one address (PinSelect and MsreSelect,
#     the three cancels, ...), whatever the .def file says;
#   - the C names are those of src/varnik.map, on both architectures;
#   - only system DLLs are imported (no compiler runtime DLL has to travel with it);
#   - FileVersion and ProductVersion are project()'s version in CMakeLists.txt.
#
#   check-exports.sh REPOSITORY OBJDUMP Varnik.dll...
#
# The .def file of each DLL is chosen by its machine type (PE32+ Varnik64.def, PE32 Varnik32.def).
set -euo pipefail -f  # no globbing: export names hold "?"
source_dir="$1" objdump="$2"
version=$(sed -n 's/^project(Varnik VERSION \([0-9.]*\).*/\1/p' "$source_dir/CMakeLists.txt")
shift 2
dlls=("$@")

source "$(dirname "$0")/pe-tools.sh"

# The C names of the Linux version script (the C++ operators stand in quotes there).
map_c_names() {
  sed -n '/global:/,/local:/p' "$1" | grep -v '"' | tr ';' '\n' |
    sed 's/global://; s/local:.*//; s/extern.*//; s/[{} ]//g' | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' |
    sort -u
}

for dll in "${dlls[@]}"; do
  echo "== $dll"
  if [ ! -f "$dll" ]; then
    fail "$dll: not built"
    continue
  fi
  header=$("$objdump" -p "$dll")
  if grep -q 'pei-x86-64' <<<"$header"; then
    def="$source_dir/src/Varnik64.def"
  else
    def="$source_dir/src/Varnik32.def"
  fi

  exports=$(dll_exports "$dll")
  wanted=$(def_entries "$def" | awk '{ print $1 }' | sort)
  got=$(awk '{ print $1 }' <<<"$exports" | sort)
  [ "$wanted" = "$got" ] ||
    fail "$dll: exports differ from $(basename "$def"): $(diff <(echo "$wanted") <(echo "$got") |
          grep '^[<>]' | tr '\n' ' ')"
  # Only the operators carry decorated names, the other compiler's (??4...) for its hosts.
  stray=$(grep '@' <<<"$got" | grep -v '^??4CBrelmat@@' || true)
  [ -z "$stray" ] || fail "$dll: decorated export names: $(tr '\n' ' ' <<<"$stray")"

  # The routines that answer to several names, whatever the .def file says.
  operators=$(grep '^??4CBrelmat@@' <<<"$got" | tr '\n' ' ' || true)
  [ "$(wc -w <<<"$operators")" -eq 2 ] || fail "$dll: not two ??4CBrelmat names: $operators"
  for group in "PinSelect MsreSelect" "PinCheckPort MsreCheckPort" "PosCancel PinCancel MsreCancel" \
               "_ZN8CBrelmataSERKS_ _ZN8CBrelmataSEOS_ $operators"; do
    rvas=$(for name in $group; do awk -v n="$name" '$1 == n { print $2 }' <<<"$exports"; done |
           sort -u)
    [ "$(wc -l <<<"$rvas")" -eq 1 ] && [ -n "$rvas" ] ||
      fail "$dll: $group are not one routine at one address"
  done

  c_names=$(grep -v -e '^_Z' -e '^??' <<<"$got" || true)
  [ "$c_names" = "$(map_c_names "$source_dir/src/varnik.map")" ] ||
    fail "$dll: C exports differ from varnik.map"

  imports=$(awk '/DLL Name:/ { print $3 }' <<<"$header")
  echo "imports: $(tr '\n' ' ' <<<"$imports")"
  runtime=$(grep -iE '^lib|^mingw' <<<"$imports" || true)
  [ -z "$runtime" ] || fail "$dll: imports compiler runtime DLLs: $runtime"

  for field in FileVersion ProductVersion; do
    value=$(strings -el "$dll" | grep -A1 -x "$field" | sed -n 2p || true)
    [ "$value" = "$version" ] || fail "$dll: $field is '$value', expected $version"
  done
  echo "$(wc -l <<<"$got") exports checked"
done

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "exports, imports and version of all DLLs as they should be"
