# Shared by the static checks of the built DLLs (sourced): failure counting and the two tables
# they read, the .def file's names and the DLL's export table. Needs $objdump.

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# "name target" per export of a .def file; the target is the name itself when none is given.
def_entries() {
  sed -n '/^EXPORTS/,$p' "$1" | sed '1d; s/;.*//; s/"//g' | awk 'NF {
    if ($2 == "=") print $1, $3; else print $1, $1 }'
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
