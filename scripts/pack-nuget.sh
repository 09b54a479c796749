#!/usr/bin/env bash
# Builds the library for Windows x64, Windows x86 and Linux x64 and packs them with the .NET
# binding into dist/Varnik.<version>.nupkg. Needs the .NET SDK 8 or later; the C/C++ build
# does not. The version is the project's, as the Linux build's configuration holds it.
#   scripts/pack-nuget.sh
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v dotnet >/dev/null; then
  echo "SKIPPED: pack-nuget: the .NET SDK (dotnet, 8 or later) is not installed"
  exit 0
fi

# Only the library of each preset: the tools and tests need not be built for a package.
for preset in mingw-x64 mingw-x86 linux; do
  [ -f "build/$preset/CMakeCache.txt" ] || cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target varnik
done

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/linux/CMakeCache.txt)
[ -n "$version" ] || { echo "pack-nuget: no project version in build/linux/CMakeCache.txt" >&2; exit 1; }

# The Linux library without its debug information, as the release archives have it.
native=build/nuget-native
rm -rf "$native" && mkdir -p "$native"
strip --strip-unneeded -o "$native/libvarnik.so" build/linux/libvarnik.so

mkdir -p dist
rm -f dist/Varnik.*.nupkg
dotnet pack bindings/dotnet/Varnik.Net.csproj -c Release --nologo -v quiet \
  --artifacts-path build/dotnet -o dist -p:Version="$version" \
  -p:VarnikWin64="$PWD/build/mingw-x64/Varnik.dll" -p:VarnikWin32="$PWD/build/mingw-x86/Varnik.dll" \
  -p:VarnikLinux64="$PWD/$native/libvarnik.so"

# NuGet names the file by the normalised version: 1.0.2.0 gives Varnik.1.0.2.nupkg.
package=$(ls dist/Varnik.*.nupkg)
# The package must hold every piece; a missing one fails here rather than in a till.
/usr/bin/python3 - "$package" <<'PY'
import sys, zipfile
names = set(zipfile.ZipFile(sys.argv[1]).namelist())
want = ["lib/netstandard2.0/Varnik.Net.dll", "lib/netstandard2.0/Varnik.Net.xml",
        "runtimes/win-x64/native/Varnik.dll", "runtimes/win-x86/native/Varnik.dll",
        "runtimes/linux-x64/native/libvarnik.so", "buildTransitive/Varnik.targets",
        "build/Varnik.targets", "README.md"]
missing = [n for n in want if n not in names]
if missing:
    sys.exit("pack-nuget: missing from %s: %s" % (sys.argv[1], ", ".join(missing)))
PY
# A sample restored from an earlier package of the same version would keep that one.
rm -rf bindings/dotnet/samples/*/obj/packages/varnik
echo "$package"
