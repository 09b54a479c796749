#!/usr/bin/env bash
# cmake --install into a staged prefix, then the installed varnik and a C host built through
# the installed varnik.pc run against the simulator, with the library in lib/ (no config/
# beside it): its files go to the user's folders, to the environment's, and what can't be
# written is named.   check-install.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build="$1" source="$2"
work="$(mktemp -d /tmp/varnik-install-XXXXXX)"
sim_pid=""
cleanup() { [ -z "$sim_pid" ] || { kill "$sim_pid"; wait "$sim_pid" || true; }; rm -rf "$work"; }
trap cleanup EXIT
fail() { echo "FAIL: $*"; exit 1; }

DESTDIR="$work/stage" cmake --install "$build" --prefix /usr/local >/dev/null
prefix="$work/stage/usr/local"
export HOME="$work/home" PATH="$prefix/bin:$PATH"
unset XDG_CONFIG_HOME XDG_STATE_HOME VARNIK_CONFIG_DIR VARNIK_LOG_DIR VARNIK_LIBRARY
user="$HOME/.config/varnik"
mkdir -p "$user" "$work/env" && echo '{"mode":1}' | tee "$user/debug.json" >"$work/env/debug.json"
new6210-sim --quiet --link "$user/COM7" >"$work/sim.out" &
sim_pid=$!
for _ in $(seq 50); do [ -s "$work/sim.out" ] && break; sleep 0.1; done
ln -s "$(readlink "$user/COM7")" "$work/env/COM7"

version=$(sed -n 's/^project(Varnik VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
[ "$(varnik --version)" = "varnik $version
library $version $prefix/bin/../lib/libvarnik.so.1" ] || fail "varnik --version: $(varnik --version)"
varnik checkport 7 >/dev/null 2>"$work/err" || fail "installed checkport: $(cat "$work/err")"
[ "$(cat "$user/varnik.json")" = '{"port":7}' ] || fail "varnik.json not in $user"
ls "$HOME/.local/state/varnik/"*.log >/dev/null 2>&1 || [ -d /var/log/varnik ] || fail "no log in the state folder"

# A host built through the installed varnik.pc loads lib/libvarnik.so.1 and reads the user's port.
cc ${VARNIK_HOST_CFLAGS:-} -std=c99 -o "$work/probe" "$source/examples/probe_version.c" \
  $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs varnik)
[ "$(LD_LIBRARY_PATH="$prefix/lib" "$work/probe")" = "terminal: NEW6210 SIM 1.0" ] || fail "the pkg-config host"

# /etc/varnik/ serves what the user's folder lacks; seen through an overlay of /etc in a mount
# namespace of this test's own (root only), so the machine's /etc is never written.
if [ "$(id -u)" = 0 ] && command -v unshare >/dev/null; then
  rm "$user/varnik.json" && mkdir "$work/upper" "$work/overlay"
  status=0
  unshare -m --propagation private sh -c 'mount -t overlay overlay \
      -o "lowerdir=/etc,upperdir=$1/upper,workdir=$1/overlay" /etc 2>/dev/null || exit 77
    mkdir -p /etc/varnik && echo "{\"port\":7}" >/etc/varnik/varnik.json && varnik version' - "$work" \
    >"$work/out" 2>&1 || status=$?
  if [ "$status" = 77 ]; then
    echo "SKIPPED: /etc/varnik: this kernel mounts no overlay"
  else
    [ "$(cat "$work/out")" = "NEW6210 SIM 1.0" ] || fail "/etc/varnik/varnik.json not read: $(cat "$work/out")"
  fi
fi

# The environment's folders; then a varnik.json and a log that cannot be written, named.
VARNIK_CONFIG_DIR="$work/env" VARNIK_LOG_DIR="$work/logs" varnik checkport 7 >/dev/null
[ -f "$work/env/varnik.json" ] && ls "$work/logs/"*.log >/dev/null || fail "VARNIK_CONFIG_DIR, VARNIK_LOG_DIR"
rm "$work/env/varnik.json" && mkdir "$work/env/varnik.json" && touch "$work/afile"
VARNIK_CONFIG_DIR="$work/env" VARNIK_LOG_DIR="$work/afile/log" varnik checkport 7 >/dev/null 2>"$work/err" ||
  fail "checkport with unwritable files: $(cat "$work/err")"
grep -q "could not save it in $work/env/varnik.json\$" "$work/err" && grep -q "could not be written in $work/afile/log\$" "$work/err" ||
  fail "unwritable files not named: $(cat "$work/err")"
echo "installed: GNU layout, user's, system's and environment's folders, unwritable files named"
