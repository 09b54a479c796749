#!/usr/bin/env bash
# Benchmarks: builds in release mode (build/release, and build/release-x64 for Wine) and prints
# one table of how long the library's calls take against the simulator, natively and (where
# Wine is present) through the x64 DLL under Wine. Each row: median, min and max over the runs;
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

wine=$(command -v wine64 || true)
[ -n "$wine" ] || [ ! -x /usr/lib/wine/wine64 ] || wine=/usr/lib/wine/wine64
if [ "$wine_wanted" -eq 1 ] && [ -n "$wine" ] && command -v x86_64-w64-mingw32-g++ >/dev/null; then
  winbuild="$root/build/release-x64"
  cmake -S "$root" -B "$winbuild" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-x64.cmake" >/dev/null
  cmake --build "$winbuild" --target Varnik.dll varnik-timing >/dev/null
else
  wine=""
fi

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
  [ -z "$wine" ] || "$wineserver" -k 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

# The library's folder: a copy of the library and config/varnik.json naming port 7.
mkdir -p "$work/linux/config" "$work/windows/config"
cp "$build/libvarnik.so" "$work/linux/"
printf '{"port":7}' >"$work/linux/config/varnik.json"
if [ -n "$wine" ]; then
  cp "$winbuild/Varnik.dll" "$winbuild/tools/bench/varnik-timing.exe" "$work/windows/"
  printf '{"port":7}' >"$work/windows/config/varnik.json"
  export WINEPREFIX="$work/prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEARCH=win64
  wineserver=$(command -v wineserver || echo "$(dirname "$wine")/wineserver")
  "$wine" wineboot.exe -i >"$work/wineboot.log" 2>&1
  "$wineserver" -w
  # Its own output goes to a file: it dumps its state when the simulator's pty hangs up.
  "$wineserver" -p >"$work/wineserver.log" 2>&1
fi

rows=()
bytes_per_second=92160  # 921600 baud, 10 bits a byte

# measure SYSTEM LABEL FIGURE RUNS [SIMULATOR OPTIONS...]: one row of the table.
measure() {
  local system="$1" label="$2" figure="$3" count="$4"
  shift 4
  local link="$work/linux/config/COM7"
  [ "$system" = linux ] || link="$WINEPREFIX/dosdevices/com7"
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
    result=$(cd "$work/windows" && timeout 600 "$wine" varnik-timing.exe 'Z:'"${work//\//\\}"'\windows\Varnik.dll' \
      "$figure" "$count" "$cpu_seconds" | tr -d '\r') || result=""
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

for system in linux ${wine:+windows}; do
  suffix=""
  [ "$system" = linux ] || suffix=" (Wine, x64 DLL)"
  measure "$system" "getVersion round trip$suffix" version "$runs"
  measure "$system" "getVersion round trip, throttled$suffix" version "$runs" --throttle
  measure "$system" "Stripe read (MsreRead), throttled$suffix" stripe "$runs" --throttle
  measure "$system" "Thai ID through ThaiIDRead, throttled$suffix" thaiid "$runs" --throttle
  measure "$system" "Thai ID with photo, ReaderSelect + PC/SC, throttled$suffix" pcsc-thaiid \
    "$(( runs / 10 > 3 ? runs / 10 : 3 ))" --throttle
  measure "$system" "CPU while a PIN entry waits (share of a core)$suffix" cpu-wait 1 --pin-wait
  if [ "$system" = linux ]; then
    # "upload 1 MB  RUNS  MEDIAN s  MIN s  MAX s  FLOOR s  RATIO", in milliseconds here.
    row=$("$build/tools/bench/varnik-bench" --lib "$build/libvarnik.so" --sim "$sim" \
      --runs "$upload_runs" --only "upload 1 MB" | awk '/^upload 1 MB/ && $NF != "" && NF >= 9 {
        printf "Upload of 1 MB through PosExec, throttled|%.1f|%.1f|%.1f|%.1f|%s", \
          $(NF-8) * 1000, $(NF-6) * 1000, $(NF-4) * 1000, $(NF-2) * 1000, $NF }') || row=""
    rows+=("${row:-Upload of 1 MB through PosExec, throttled|failed|||||}")
  fi
done

echo "Measured $(date -u +%Y-%m-%d) on $(uname -srm), $(nproc) cores," \
  "$(sed -n 's/^model name\s*: //p' /proc/cpuinfo | head -1); $runs runs a row."
echo
echo "| Figure | Median ms | Min ms | Max ms | Wire ms | Wire / median |"
echo "|---|---:|---:|---:|---:|---:|"
for row in "${rows[@]}"; do
  echo "| ${row//|/ | } |"
done
