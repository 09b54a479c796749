#!/usr/bin/env bash
# Builds a release archive with cpack into a temporary folder and checks it.
#   check-package.sh linux BUILD_DIR               unpack, build the examples through
#                                                  pkg-config, run them against the packed
#                                                  simulator
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
for example in probe_version stripe pin_cancel thaiid; do
  cc ${VARNIK_HOST_CFLAGS:-} -std=c99 -pthread -o "$dir/$example" "$dir/examples/$example.c" \
    $(PKG_CONFIG_PATH="$dir" pkg-config --cflags --libs varnik)
done
"$dir/new6210-sim" --quiet --link "$dir/config/COM7" >"$work/sim.out" &
sim_pid=$!
for _ in $(seq 50); do [ -s "$work/sim.out" ] && break; sleep 0.1; done

# From another folder: the examples find the library through the path pkg-config gave them.
output=$(cd / && "$dir/probe_version" 7 && "$dir/stripe" && "$dir/pin_cancel" 30 && "$dir/thaiid" | head -3)
expected="terminal: NEW6210 SIM 1.0
swipe a card...
track 1: B4111111111111111D2512101FC
track 2: B4111111111111111D2512FC
enter the PIN on the terminal...
PIN block: 12 34 56 78 90 AB CD EF
Citizen id    1234567890121
Thai name     นาย สมชาย ใจดี
English name  Mr. Somchai Jaidee"
[ "$output" = "$expected" ] || { printf 'FAIL: the examples printed\n%s\nexpected\n%s\n' "$output" "$expected"; exit 1; }
[ "$(cat "$dir/config/varnik.json")" = '{"port":7}' ] || { echo "FAIL: config/varnik.json not written beside the library"; exit 1; }
for want in LICENSE CHANGELOG.md man/varnik.1 install-pcscd-driver.sh libifd_varnik.so libvarnik.so.1; do
  [ -e "$dir/$want" ] || { echo "FAIL: the archive lacks $want"; exit 1; }
done
echo "the unpacked release builds its examples through pkg-config and runs them"
