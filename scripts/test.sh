#!/usr/bin/env bash
# Installs what is missing, builds the three targets (Linux, Windows x64, Windows x86) and runs
# every test: unit, integration against the simulator, and the Wine tests of the x64 DLL; then
# the benchmarks in their short mode.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

for preset in mingw-x64 mingw-x86 linux; do
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
done

ctest --preset linux --no-tests=error "$@"

# The benchmarks once, briefly, so that they keep working; no figure fails the run.
scripts/bench.sh --short
