#!/usr/bin/env bash
# Runs one group of BindingTest.exe from a till folder of its own, laid out as an application
# ships: the program, Varnik.Net.dll with its dllmap, libvarnik.so, and an empty config/.
#   run-binding-test.sh MONO BUILD_DIR LIBRARY SIMULATOR GROUP
set -euo pipefail
mono="$1" build="$2" library="$3" simulator="$4" group="$5"
till="$(mktemp -d /tmp/varnik-dotnet-XXXXXX)"
# The simulator the program started, by the id it wrote down.
trap '[ ! -f "$till/sim.pid" ] || kill "$(cat "$till/sim.pid")" 2>/dev/null || true; rm -rf "$till"' EXIT
mkdir "$till/config"
cp "$build/BindingTest.exe" "$build/Varnik.Net.dll" "$build/Varnik.Net.dll.config" "$till/"
cp "$library" "$till/libvarnik.so"  # the name the dllmap gives, whatever the build's real name
# A process that hangs on its way out fails here, well before the ctest time-out.
timeout 30 "$mono" --debug "$till/BindingTest.exe" "$group" "$simulator"
