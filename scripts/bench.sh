#!/usr/bin/env bash
# Benchmarks: builds the library, the simulator and varnik-bench in release mode
# (build/release), then runs every benchmark of tools/bench against the simulator throttled
# to 921600 baud and prints one row each: median, min and max of the runs, the time the
# line itself needs (floor) and floor / median. The goal for the upload is 0.97 or better.
#
#   scripts/bench.sh [--runs N] [--only NAME] [--list]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build/release"

quietly() {
  local output
  if ! output="$("$@" 2>&1)"; then
    printf '%s\n' "$output" >&2
    echo "bench: failed: $*" >&2
    exit 1
  fi
}

echo "Building in release mode ($build)..." >&2
quietly cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF
# The library by its file: the target name "varnik" is also the file of the command-line host.
quietly cmake --build "$build" --target libvarnik.so new6210-sim varnik-bench

exec "$build/tools/bench/varnik-bench" --lib "$build/libvarnik.so" \
  --sim "$build/tools/sim/new6210-sim" "$@"
