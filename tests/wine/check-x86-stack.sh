#!/usr/bin/env bash
# Static check of the x86 Varnik.dll, beside its runs under wine32: a __stdcall (or
# __thiscall) routine pops its own arguments, and a wrong count corrupts the host's stack only
# when it runs. So every exported routine must end each of its paths with "ret 4*argc" ("ret"
# alone for none), the count taken from the @N of the .def file's target (the CBrelmat
# operators take one reference). That names of one routine share its address, check-exports.sh
# checks on this DLL too.
#
#   check-x86-stack.sh REPOSITORY OBJDUMP Varnik.dll
set -euo pipefail -f  # no globbing: export names hold "?"
source_dir="$1" objdump="$2" dll="$3"

source "$(dirname "$0")/pe-tools.sh"

headers=$("$objdump" -p "$dll")
grep -q 'pei-i386' <<<"$headers" || { echo "FAIL: $dll is not an x86 DLL"; exit 1; }
base=$((16#$(awk '/^ImageBase/ { print $2 }' <<<"$headers")))

exports=$(dll_exports "$dll")
entries=$(def_entries "$source_dir/src/Varnik32.def")

# Each routine's instructions, "address<TAB>text", up to the next label.
listing=$("$objdump" -d --no-show-raw-insn "$dll")

# The returns of a routine: its own rets, and those of the routines it ends in by a tail jump
# (PinSelect ends in a jmp to PosSelect, which then pops for it).
routine_rets() {
  local label=$1 depth=${2:-0}
  awk -v l="<$label>:" -v c="<$label.cold>:" '
    /^[0-9a-f]+ </ { inside = ($2 == l || $2 == c); next }
    inside && /\tret/ { sub(/^[^\t]*\t */, ""); sub(/ +$/, ""); gsub(/ +/, " "); print }
    inside && /\tjmp +[0-9a-f]+ <[^+>]+>/ { match($0, /<[^>]+>/);
                                         print "tail " substr($0, RSTART + 1, RLENGTH - 2) }' \
    <<<"$listing" | sort -u | while read -r line; do
      case "$line" in
        "tail $label"*) ;;
        tail\ *) [ "$depth" -lt 3 ] && routine_rets "${line#tail }" $((depth + 1)) ;;
        *) echo "$line" ;;
      esac
    done | sort -u
}

checked=0
while read -r name target; do
  rva=$(awk -v n="$name" '$1 == n { print $2 }' <<<"$exports")
  [ -n "$rva" ] || { fail "$name: not exported"; continue; }
  address=$(printf '%x' $((base + 16#$rva)))
  case "$target" in
    *@[0-9]*) bytes=${target##*@} ;;
    _ZN8CBrelmataS*) bytes=4 ;;
    *) fail "$name: no argument size in the target $target"; continue ;;
  esac
  want="ret"
  [ "$bytes" -gt 0 ] && want="ret \$0x$(printf '%x' "$bytes")"
  # The routine's body and its split-off cold part, if the compiler made one.
  label=$(awk -v a="$address" '$1 == a && $2 ~ /^</ { print $2; exit }' <<<"$listing" | tr -d '<>:')
  [ -n "$label" ] || { fail "$name: no routine starts at $address"; continue; }
  rets=$(routine_rets "$label")
  [ -n "$rets" ] || { fail "$name: no ret in $label"; continue; }
  [ "$rets" = "$want" ] || fail "$name ($label): returns with '$(tr '\n' ',' <<<"$rets")', expected '$want'"
  checked=$((checked + 1))
done <<<"$entries"

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "$checked exports pop exactly their arguments"
