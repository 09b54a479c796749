#!/usr/bin/env bash
# The xunit tests of the binding on .NET, built in BUILD_DIR with libvarnik.so beside them.
#   run-xunit.sh DOTNET BUILD_DIR LIBRARY SIMULATOR
set -euo pipefail
dotnet="$1" build="$(realpath -m "$2")" library="$(realpath "$3")" simulator="$(realpath "$4")"
export DOTNET_NOLOGO=1 DOTNET_CLI_TELEMETRY_OPTOUT=1 DOTNET_SKIP_FIRST_TIME_EXPERIENCE=1
export VARNIK_SIMULATOR="$simulator"
sources=()
# The machine's folder of test packages, beside the configured NuGet source.
[ -d /opt/nuget/packages ] && sources=(-p:RestoreAdditionalProjectSources=/opt/nuget/packages)
exec "$dotnet" test "$(dirname "$0")/xunit/Varnik.Net.Tests.csproj" --nologo \
  --artifacts-path "$build" -p:VarnikLibrary="$library" "${sources[@]}"
