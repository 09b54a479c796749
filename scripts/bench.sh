#!/usr/bin/env bash
# Benchmarks: builds in release mode (build/release, and build/release-x64 and -x86 for Wine)
# and prints one table of how long the library's calls take against the simulator, natively and
# (where Wine is present) through each DLL under Wine, with the event wait and the read watch. Each row: median, min and max over the runs;
# the wire time (what the bytes of one call need at 921600 baud, both ways, counted on the
# simulator's side) or the floor; and wire / median (1.000 is the line's own speed; above 1
# where the simulator is not throttled and the pseudo-terminal outruns the line).
# varnik-timing times the calls, varnik-bench the upload.
#
#   scripts/bench.sh [--short] [--no-wine] [--runs N]
#
# --short runs few calls and a short CPU window (CI runs it so that the suite keeps working;
# no figure fails it). Figures are not tests: the table is for reading.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

runs=200 cpu_seconds=5 wine_wanted=1 upload_runs=3
while [ $# -gt 0 ]; do
  case "$1" in
    --short) runs=10 cpu_seconds=1 upload_runs=1; shift ;;
    --no-wine) wine_wanted=0; shift ;;
    --runs) runs="$2"; shift 2 ;;
    *) echo "usage: scripts/bench.sh [--short] [--no-wine] [--runs N]" >&2; exit 2 ;;
  esac
done

build="$root/build/release"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
# File names, not target names: the command-line host's file is called "varnik" too.
cmake --build "$build" --target libvarnik.so new6210-sim varnik-timing varnik-bench >/dev/null
sim="$build/tools/sim/new6210-sim"
timing="$build/tools/bench/varnik-timing"

# Under Wine: the x64 DLL with wine64 and the x86 DLL with wine32 (where installed), each with
# the port's event wait (WaitCommEvent, made to work on a pty by the preloaded pty_modem.so) and
# with the read watch it falls back to (the same preload, modem lines off).
wine64=/usr/lib/wine/wine64 wine32=/usr/lib/wine/wine
wine_arches=()
if [ "$wine_wanted" -eq 1 ] && [ -x "$wine64" ]; then
  command -v x86_64-w64-mingw32-g++ >/dev/null && wine_arches+=(x64)
  [ -x "$wine32" ] && command -v i686-w64-mingw32-g++ >/dev/null && wine_arches+=(x86)
fi
for arch in ${wine_arches[@]+"${wine_arches[@]}"}; do
  cmake -S "$root" -B "$root/build/release-$arch" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-$arch.cmake" >/dev/null
  cmake --build "$root/build/release-$arch" --target Varnik.dll varnik-timing >/dev/null
done

work=$(mktemp -d "${TMPDIR:-/tmp}/varnik-bench.XXXXXX")
sim_pid=""
stop_sim() {
  if [ -n "$sim_pid" ]; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
    sim_pid=""
  fi
}
cleanup() {
  stop_sim
  for arch in ${wine_arches[@]+"${wine_arches[@]}"}; do
    WINEPREFIX="$work/prefix-$arch" "$(dirname "$wine64")/wineserver" -k 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT

# The library's folder: a copy of the library and config/varnik.json naming port 7.
mkdir -p "$work/linux/config"
cp "$build/libvarnik.so" "$work/linux/"
printf '{"port":7}' >"$work/linux/config/varnik.json"
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
preload="$work/preload/\$LIB/pty_modem.so"
for arch in ${wine_arches[@]+"${wine_arches[@]}"}; do
  mkdir -p "$work/$arch/config"
  cp "$root/build/release-$arch/Varnik.dll" "$root/build/release-$arch/tools/bench/varnik-timing.exe" \
    "$work/$arch/"
  printf '{"port":7}' >"$work/$arch/config/varnik.json"
  bits=64 multiarch=x86_64-linux-gnu wine=$wine64 winearch=win64
  [ "$arch" = x64 ] || { bits=32 multiarch=i386-linux-gnu wine=$wine32 winearch=win32; }
  mkdir -p "$work/preload/lib/$multiarch"
  cc -m$bits -shared -fPIC -O2 -o "$work/preload/lib/$multiarch/pty_modem.so" \
    "$root/tools/wine/pty_modem.c" -ldl
  WINEPREFIX="$work/prefix-$arch" WINEARCH=$winearch LD_PRELOAD="$preload" \
    "$wine" wineboot.exe -i >"$work/wineboot-$arch.log" 2>&1
  WINEPREFIX="$work/prefix-$arch" "$(dirname "$wine64")/wineserver" -w
  # Its own output goes to a file: it dumps its state when the simulator's pty hangs up.
  WINEPREFIX="$work/prefix-$arch" LD_PRELOAD="$preload" "$(dirname "$wine64")/wineserver" -p \
    >"$work/wineserver-$arch.log" 2>&1
done

rows=()
bytes_per_second=92160  # 921600 baud, 10 bits a byte

# measure SYSTEM LABEL FIGURE RUNS [SIMULATOR OPTIONS...]: one row of the table. SYSTEM is
# linux, or ARCH-WAIT under Wine (x64-event, x86-read, ...).
measure() {
  local system="$1" label="$2" figure="$3" count="$4"
  shift 4
  local arch=${system%-*} lines=1
  [ "${system#*-}" = event ] || lines=0
  local link="$work/linux/config/COM7"
  [ "$system" = linux ] || link="$work/prefix-$arch/dosdevices/com7"
  rm -f "$work/in" "$work/out"
  "$sim" --quiet --link "$link" --record "$work/in" --record-sent "$work/out" "$@" \
    >"$work/sim.out" 2>&1 &
  sim_pid=$!
  for _ in $(seq 100); do [ -s "$work/sim.out" ] && [ -L "$link" ] && break; sleep 0.05; done
  local result
  if [ "$system" = linux ]; then
    result=$(timeout 600 "$timing" "$work/linux/libvarnik.so" "$figure" "$count" \
      "$cpu_seconds") || result=""
  else
    local wine=$wine64
    [ "$arch" = x64 ] || wine=$wine32
    result=$(cd "$work/$arch" && WINEPREFIX="$work/prefix-$arch" LD_PRELOAD="$preload" \
      PTY_MODEM_LINES=$lines timeout 600 "$wine" varnik-timing.exe \
      'Z:'"${work//\//\\}"'\'"$arch"'\Varnik.dll' "$figure" "$count" "$cpu_seconds" |
      tr -d '\r') || result=""
  fi
  stop_sim
  if [ -z "$result" ]; then
    echo "bench: $label failed; the simulator said:" >&2
    sed 's/^/  | /' "$work/sim.out" >&2
    rows+=("$label|failed|||||")
    return
  fi
  local median min max calls failed
  read -r median min max calls failed <<<"$result"
  [ "$failed" = 0 ] || label="$label ($failed of $calls failed)"
  if [ "$figure" = cpu-wait ]; then
    rows+=("$label|${median}%|${min}%|${max}%|0% (no wake-ups)|-")
    return
  fi
  local total=$(($(stat -c %s "$work/in" 2>/dev/null || echo 0) + $(stat -c %s "$work/out" 2>/dev/null || echo 0)))
  local wire
  wire=$(awk -v b="$total" -v c="$calls" -v r="$bytes_per_second" 'BEGIN { printf "%.3f", b / c / r * 1000 }')
  local ratio
  ratio=$(awk -v m="$median" -v w="$wire" 'BEGIN { printf "%.3f", w / m }')
  rows+=("$label|$median|$min|$max|$wire|$ratio")
}

photo_runs=$(( runs / 10 > 3 ? runs / 10 : 3 ))
# One system's rows; "full" adds the throttled short calls, which natively and on one Wine
# configuration are enough to show what the line and Wine cost.
measure_set() {
  local system="$1" suffix="$2" full="$3"
  measure "$system" "getVersion round trip$suffix" version "$runs"
  if [ "$full" = 1 ]; then
    measure "$system" "getVersion round trip, throttled$suffix" version "$runs" --throttle
    measure "$system" "Stripe read (MsreRead), throttled$suffix" stripe "$runs" --throttle
    measure "$system" "Thai ID through ThaiIDRead, throttled$suffix" thaiid "$runs" --throttle
  fi
  measure "$system" "Thai ID with photo, ReaderSelect + PC/SC, throttled$suffix" pcsc-thaiid \
    "$photo_runs" --throttle
  measure "$system" "CPU while a PIN entry waits (share of a core)$suffix" cpu-wait 1 --pin-wait
}

photo_runs=$(( runs / 10 > 3 ? runs / 10 : 3 ))
measure_set linux "" 1
# "upload 1 MB  RUNS  MEDIAN s  MIN s  MAX s  FLOOR s  RATIO", in milliseconds here.
row=$("$build/tools/bench/varnik-bench" --lib "$build/libvarnik.so" --sim "$sim" \
  --runs "$upload_runs" --only "upload 1 MB" | awk '/^upload 1 MB/ && $NF != "" && NF >= 9 {
    printf "Upload of 1 MB through PosExec, throttled|%.1f|%.1f|%.1f|%.1f|%s", \
      $(NF-8) * 1000, $(NF-6) * 1000, $(NF-4) * 1000, $(NF-2) * 1000, $NF }') || row=""
rows+=("${row:-Upload of 1 MB through PosExec, throttled|failed|||||}")
for arch in ${wine_arches[@]+"${wine_arches[@]}"}; do
  for wait in event read; do
    full=0
    [ "$arch-$wait" != x64-read ] || full=1
    measure_set "$arch-$wait" " (Wine, $arch DLL, $wait wait)" "$full"
  done
done

echo "Measured $(date -u +%Y-%m-%d) on $(uname -srm), $(nproc) cores," \
  "$(sed -n 's/^model name\s*: //p' /proc/cpuinfo | head -1); $runs runs a row."
echo
echo "| Figure | Median ms | Min ms | Max ms | Wire ms | Wire / median |"
echo "|---|---:|---:|---:|---:|---:|"
for row in "${rows[@]}"; do
  echo "| ${row//|/ | } |"
done
