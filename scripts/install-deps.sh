#!/usr/bin/env bash
# Installs the Debian packages that are missing from the list given (or from the full list of
# what building and testing everything needs).
set -euo pipefail

packages=("$@")
if [ ${#packages[@]} -eq 0 ]; then
  packages=(cmake ninja-build g++ make libgtest-dev
            g++-mingw-w64-x86-64 g++-mingw-w64-i686 wine wine64
            python3 python3-pyscard libpcsclite1 procps libjpeg-turbo-progs
            mono-mcs mono-runtime pkg-config clang libclang-rt-14-dev
            libpcsclite-dev pcscd pcsc-tools)
fi

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
echo "Installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
