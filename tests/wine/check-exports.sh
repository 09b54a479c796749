#!/usr/bin/env bash
# Checks the export table, imports and version record of the built Windows DLLs against the
# .def files and the Linux export list:
#   - exactly the names of the .def file are exported, undecorated (no "@n", no "_" added);
#   - the names that are one routine by design share one address (PinSelect and MsreSelect,
#     the three cancels, ...), whatever the .def file says;
#   - the C names are those of src/varnik.map, on both architectures;
#   - only system DLLs are imported (no compiler runtime DLL has to travel with it);
#   - FileVersion and ProductVersion are 1.0.2.0.
#
#   check-exports.sh --source <repository> [--objdump OBJDUMP] <Varnik.dll> [<Varnik.dll> ...]
#
# The .def file of each DLL is chosen by its machine type (PE32+ Varnik64.def, PE32 Varnik32.def).
set -euo pipefail

source_dir="" objdump=""
dlls=()
while [ $# -gt 0 ]; do
  case "$1" in
    --source) source_dir="$2"; shift 2 ;;
    --objdump) objdump="$2"; shift 2 ;;
    -*) echo "unknown option: $1" >&2; exit 2 ;;
    *) dlls+=("$1"); shift ;;
  esac
done
[ -n "$source_dir" ] && [ ${#dlls[@]} -gt 0 ] || {
  echo "usage: check-exports.sh --source DIR [--objdump OBJDUMP] DLL..." >&2
  exit 2
}
[ -n "$objdump" ] || objdump=$(command -v x86_64-w64-mingw32-objdump || command -v objdump)

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# "name target" per export of a .def file; the target is the name itself when none is given.
def_entries() {
  sed -n '/^EXPORTS/,$p' "$1" | sed '1d; s/;.*//' | awk 'NF {
    if ($2 == "=") print $1, $3; else print $1, $1 }'
}

# The C names of the Linux version script (the C++ operators stand in quotes there).
map_c_names() {
  sed -n '/global:/,/local:/p' "$1" | grep -v '"' | tr ';' '\n' |
    sed 's/global://; s/local:.*//; s/extern.*//; s/[{} ]//g' | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' |
    sort -u
}

# "name rva" per export of a DLL.
dll_exports() {
  "$objdump" -p "$1" | awk '
    /^Export Address Table --/ { table = 1; next }
    table && /^\t\[ *[0-9]+\] \+base\[ *[0-9]+\]/ { rva[n++] = $(NF - 2); next }
    table && /^$/ && n { table = 0 }
    /^\[Ordinal\/Name Pointer\] Table/ { names = 1; next }
    names && /^\t\[ *[0-9]+\]/ { sub(/^\t\[ */, ""); index_ = $1 + 0; sub(/^[0-9]+\] /, "");
                                print $0, rva[index_]; next }
    names && /^$/ { names = 0 }'
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
  grep -q '@' <<<"$got" && fail "$dll: decorated export names: $(grep '@' <<<"$got" | tr '\n' ' ')"

  # The routines that answer to several names, whatever the .def file says.
  for group in "PinSelect MsreSelect" "PinCheckPort MsreCheckPort" "PosCancel PinCancel MsreCancel" \
               "_ZN8CBrelmataSERKS_ _ZN8CBrelmataSEOS_"; do
    rvas=$(for name in $group; do awk -v n="$name" '$1 == n { print $2 }' <<<"$exports"; done |
           sort -u)
    [ "$(wc -l <<<"$rvas")" -eq 1 ] && [ -n "$rvas" ] ||
      fail "$dll: $group are not one routine at one address"
  done

  c_names=$(grep -v '^_Z' <<<"$got" || true)
  [ "$c_names" = "$(map_c_names "$source_dir/src/varnik.map")" ] ||
    fail "$dll: C exports differ from varnik.map"

  imports=$(awk '/DLL Name:/ { print $3 }' <<<"$header")
  echo "imports: $(tr '\n' ' ' <<<"$imports")"
  runtime=$(grep -iE '^lib|^mingw' <<<"$imports" || true)
  [ -z "$runtime" ] || fail "$dll: imports compiler runtime DLLs: $runtime"

  for field in FileVersion ProductVersion; do
    value=$(strings -el "$dll" | grep -A1 -x "$field" | sed -n 2p || true)
    [ "$value" = "1.0.2.0" ] || fail "$dll: $field is '$value', expected 1.0.2.0"
  done
  echo "$(wc -l <<<"$got") exports checked"
done

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "exports, imports and version of all DLLs as they should be"
