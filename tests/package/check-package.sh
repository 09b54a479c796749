#!/usr/bin/env bash
# Builds a release archive with cpack into a temporary folder and checks it.
#   check-package.sh linux BUILD_DIR HOST_SOURCE   unpack, build host.c through pkg-config,
#                                                  run it against the packed simulator
#   check-package.sh windows BUILD_DIR             the zip holds x64/ and x86/ and the bindings
set -euo pipefail
kind="$1" build="$2"
work="$(mktemp -d /tmp/varnik-package-XXXXXX)"
sim_pid=""
cleanup() { [ -z "$sim_pid" ] || { kill "$sim_pid"; wait "$sim_pid" || true; }; rm -rf "$work"; }
trap cleanup EXIT

(cd "$work" && cpack --config "$build/CPackConfig.cmake" -B "$work/out" >cpack.log) ||
  { cat "$work/cpack.log"; exit 1; }

if [ "$kind" = windows ]; then
  zip=$(ls "$work"/out/*.zip)
  listing=$(python3 -c 'import sys, zipfile; print("\n".join(zipfile.ZipFile(sys.argv[1]).namelist()))' "$zip" |
            sed 's|^[^/]*/||' | sort)
  for want in x64/Varnik.dll x64/varnik.exe x64/config/ x86/Varnik.dll x86/varnik.exe x86/config/ varnik.h README.md \
              vb6/Varnik.bas dotnet/Terminal.cs dotnet/NativeMethods.cs dotnet/Varnik.Net.csproj; do
    grep -qx "$want" <<<"$listing" || { echo "FAIL: $(basename "$zip") lacks $want"; exit 1; }
  done
  # The x86 folder must hold the 32-bit build, not a second copy of the x64 one.
  python3 -c 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); n = [m for m in z.namelist() if m.endswith("x86/Varnik.dll")][0]
d = z.read(n); pe = int.from_bytes(d[0x3c:0x40], "little"); sys.exit(d[pe + 4:pe + 6] != b"\x4c\x01")' "$zip" ||
    { echo "FAIL: x86/Varnik.dll is not a 32-bit DLL"; exit 1; }
  echo "$(basename "$zip"): $(wc -l <<<"$listing") entries as laid out"
  exit 0
fi

tar -xzf "$work"/out/*.tar.gz -C "$work"
dir=$(ls -d "$work"/varnik-*/)
[ -z "$(ls "$dir"/config)" ] || { echo "FAIL: config/ is not empty"; exit 1; }
PKG_CONFIG_PATH="$dir" cc -o "$dir/host" "$3" $(PKG_CONFIG_PATH="$dir" pkg-config --cflags --libs varnik)
"$dir/new6210-sim" --quiet --link "$dir/config/COM7" >"$work/sim.out" &
sim_pid=$!
for _ in $(seq 50); do [ -s "$work/sim.out" ] && break; sleep 0.1; done

# From another folder: the host finds the library through the path pkg-config gave it.
output=$(cd / && "$dir/host" 7)
expected="checkport 0
version NEW6210 SIM 1.0
stripe 52 B4111111111111111D2512101FC|B4111111111111111D2512FC
pin 0 12 34 56 78 90 AB CD EF"
[ "$output" = "$expected" ] || { printf 'FAIL: the host printed\n%s\nexpected\n%s\n' "$output" "$expected"; exit 1; }
[ "$(cat "$dir/config/varnik.json")" = '{"port":7}' ] || { echo "FAIL: config/varnik.json not written beside the library"; exit 1; }
echo "the unpacked release builds and runs a host through pkg-config"
