#!/usr/bin/env bash
# Installs the Debian packages that are missing from the list given (or from the full list of
# what building and testing everything needs, wine32 for the x86 DLL's Wine tests included).
set -euo pipefail

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
apt_options=()
updated=0

# Reads the package lists once. Where the full sources fail (the i386 index of the security suite
# can lag behind its amd64 one, and apt then refuses the whole update), the main suites alone
# serve: every package here is in them.
update_lists() {
  [ "$updated" -eq 0 ] || return 0
  updated=1
  $sudo apt-get update -qq && return 0
  echo "apt-get update failed; using the main suites alone"
  local sources
  sources=$(mktemp -d)
  printf 'Types: deb\nURIs: http://deb.debian.org/debian\nSuites: bookworm bookworm-updates\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' \
    >"$sources/main.sources"
  apt_options=(-o "Dir::Etc::SourceList=$sources/main.sources" -o "Dir::Etc::SourceParts=$sources")
  $sudo apt-get "${apt_options[@]}" update -qq
}

install() {
  DEBIAN_FRONTEND=noninteractive $sudo apt-get ${apt_options[@]+"${apt_options[@]}"} install -y -qq \
    --no-install-recommends --allow-downgrades "$@"
}

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

packages=("$@")
with_wine32=0
if [ ${#packages[@]} -eq 0 ]; then
  packages=(cmake ninja-build g++ make libgtest-dev gcc-multilib
            g++-mingw-w64-x86-64 g++-mingw-w64-i686 wine wine64
            python3 python3-pyscard libpcsclite1 procps libjpeg-turbo-progs
            mono-mcs mono-runtime pkg-config clang libclang-rt-14-dev
            libpcsclite-dev pcscd pcsc-tools doxygen)
  with_wine32=1
fi

missing=()
for package in "${packages[@]}"; do
  installed "$package" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  update_lists
  install "${missing[@]}"
fi

# wine32 (the x86 DLL's Wine) beside wine64. Where an amd64 package stands at another version
# than its i386 twin (a security update of one only), apt would remove wine64 to make room:
# such packages are brought to the i386 version first. Without wine32 only the x86 Wine tests
# are skipped, and they say so.
if [ "$with_wine32" -eq 1 ] && ! installed wine32:i386; then
  echo "Installing: wine32:i386"
  dpkg --print-foreign-architectures | grep -qx i386 || $sudo dpkg --add-architecture i386
  updated=0
  update_lists || true
  pins=()
  for package in $(apt-get ${apt_options[@]+"${apt_options[@]}"} install -s --no-install-recommends \
                     wine32:i386 wine64 libwine:amd64 2>/dev/null | awk '/^Remv /{ print $2 }'); do
    package=${package%:amd64}
    version=$(apt-cache ${apt_options[@]+"${apt_options[@]}"} show "$package:i386" 2>/dev/null |
              awk '/^Version:/{ print $2; exit }')
    case "$package" in wine64|libwine) ;; *) [ -z "$version" ] || pins+=("$package:amd64=$version") ;; esac
  done
  install wine32:i386 wine64 libwine:amd64 ${pins[@]+"${pins[@]}"} ||
    echo "wine32 could not be installed: the x86 Wine tests will be skipped"
fi

# Whatever happened above, the x64 Wine tests need these still to be there.
if [ "$with_wine32" -eq 1 ]; then
  for package in wine64 libwine:amd64; do
    installed "$package" || { echo "$package is no longer installed" >&2; exit 1; }
  done
  installed wine32:i386 || echo "wine32 is not installed: the x86 Wine tests will be skipped"
fi
