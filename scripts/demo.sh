#!/usr/bin/env bash
# A narrated session of the varnik command-line host against the terminal simulator: installs
# what is missing, builds the linux preset, lays out a till folder (the library, varnik beside
# it, config/) in a temporary place, and walks through the commands. Nothing is left behind.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build/linux"

step=0
bold="" plain=""
if [ -t 1 ]; then bold=$'\033[1m' plain=$'\033[0m'; fi
heading() {
  step=$((step + 1))
  printf '\n%s== %d. %s%s\n' "$bold" "$step" "$1" "$plain"
}

# Runs a command quietly; its output is shown only when it fails.
quietly() {
  local output
  if ! output="$("$@" 2>&1)"; then
    printf '%s\n' "$output" >&2
    echo "demo: failed: $*" >&2
    exit 1
  fi
}

echo "Checking the packages the build needs (apt-get installs what is missing)..."
"$root/scripts/install-deps.sh" cmake ninja-build g++ make libgtest-dev python3 libpcsclite1

echo "Building the library, varnik, the simulator and the tests (cmake preset linux)..."
cd "$root"
quietly cmake --preset linux
quietly cmake --build --preset linux

till="$(mktemp -d /tmp/varnik-demo-XXXXXX)"
simulator_pid=""
cleanup() {
  if [ -n "$simulator_pid" ]; then
    kill "$simulator_pid" 2>/dev/null || true
    wait "$simulator_pid" 2>/dev/null || true
  fi
  rm -rf "$till"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The till: the library with varnik beside it, and config/ with the log switched on. The
# library opens COM port 7 as config/COM7, which the simulator makes a link to its pty.
mkdir -p "$till/config"
cp "$build/libvarnik.so" "$build/varnik" "$till/"
echo '{"mode":1}' > "$till/config/debug.json"

# --throttle: the simulator takes and sends bytes at 921600 baud, as the real line does.
"$build/tools/sim/new6210-sim" --quiet --throttle --link "$till/config/COM7" \
  > "$till/simulator.out" 2> "$till/simulator.err" &
simulator_pid=$!
for _ in $(seq 50); do
  [ -s "$till/simulator.out" ] && break
  kill -0 "$simulator_pid" 2>/dev/null || break
  sleep 0.1
done
pty="$(head -n 1 "$till/simulator.out" 2>/dev/null || true)"
if [ -z "$pty" ]; then
  echo "demo: the simulator did not start:" >&2
  cat "$till/simulator.err" >&2
  exit 1
fi

cat <<EOF

The till folder is $till:
  libvarnik.so, varnik   the library, and the command-line host that loads it
  config/debug.json      {"mode":1}: the library writes a daily log
  config/COM7            port 7 as the library opens it on Linux: a link to
                         $pty, where the simulated NEW6210 terminal listens

EOF

cd "$till"
varnik() {
  printf '$ varnik %s\n' "$*"
  local status=0
  ./varnik "$@" || status=$?
  if [ "$status" -ne 0 ]; then
    echo "demo: varnik $* ended with status $status" >&2
    exit "$status"
  fi
}

heading "checkport 7: is a terminal on COM7? If so the library remembers the port"
varnik checkport 7
echo "config/varnik.json now holds: $(cat config/varnik.json)"

heading "probe: the next load of the library starts on the remembered port"
varnik probe

heading "version: the terminal's own version text"
varnik version

heading "swipe: a magnetic stripe (the simulator swipes its test card at once)"
varnik swipe

heading "pin: the PIN entry screen stored on the terminal, its answer in hexadecimal"
varnik pin

heading "thaiid: the terminal reads the Thai ID card in its slot and sends the record"
varnik thaiid

heading "pcsc readers: ReaderSelect puts the slot in front of this process's pcsc-lite"
varnik pcsc readers

heading "pcsc thaiid: the same card through plain PC/SC calls, APDU by APDU, photo included"
varnik pcsc thaiid --photo photo.jpg
echo "photo.jpg: $(wc -c < photo.jpg) bytes, starting $(od -An -tx1 -N2 photo.jpg | tr -d ' ' | tr a-f A-F)"

heading "upload: a folder tree goes to the terminal file by file, each with its size and CRC-32"
mkdir -p screens/logos
printf '{"screen":"welcome","text":"Sawasdee"}' > screens/welcome.json
head -c 200000 /dev/urandom > screens/logos/shop.bmp
varnik upload screens

heading "files: the terminal's file list, with what just arrived"
varnik files

heading "rm and exec: delete a file, then beep with a command document"
varnik rm welcome.json
varnik exec '{"format":"BEEP"}'

if command -v mcs >/dev/null && command -v mono >/dev/null &&
   [ -f "$build/bindings/dotnet/Varnik.Net.dll" ]; then
  heading "The .NET binding (Mono): Terminal.Version() from a C# program beside the library"
  cp "$build/bindings/dotnet/Varnik.Net.dll" "$build/bindings/dotnet/Varnik.Net.dll.config" "$till/"
  echo 'class Demo { static void Main() { System.Console.WriteLine(new Varnik.Terminal().Version()); } }' \
    > "$till/Demo.cs"
  quietly mcs -nologo -r:"$till/Varnik.Net.dll" -out:"$till/Demo.exe" "$till/Demo.cs"
  echo '$ mono Demo.exe'
  mono Demo.exe
fi

heading "pcscd: the slot as a reader of the whole machine (libifd_varnik.so) in pcsc_scan"
driver="$build/ifd/libifd_varnik.so"
if [ "$(id -u)" -eq 0 ] && command -v pcscd >/dev/null && command -v pcsc_scan >/dev/null &&
   [ -f "$driver" ]; then
  mkdir "$till/reader.conf.d"
  printf 'FRIENDLYNAME "NEW6210 Reader Card"\nDEVICENAME %s\nLIBPATH %s\n' "$pty" "$driver" \
    > "$till/reader.conf.d/varnik"
  # A daemon of our own in a private mount namespace: a pcscd of the machine is left alone.
  unshare -m --propagation private --fork --kill-child sh -c '
    mount -t tmpfs tmpfs /run/pcscd 2>/dev/null || mount -t tmpfs tmpfs /run
    pcscd --foreground --config "$1" > "$2" 2>&1 & daemon=$!
    for _ in $(seq 50); do [ -S /run/pcscd/pcscd.comm ] && break; sleep 0.1; done
    timeout 10 pcsc_scan -t 2 < /dev/null | sed -e "s/\x1b\[[0-9;]*m//g" -e "/\r/d" | head -n 30
    kill $daemon; wait $daemon' sh "$till/reader.conf.d" "$till/pcscd.log" || true
else
  echo "(shown as root with pcscd, pcsc-tools and libpcsclite-dev installed;"
  echo " scripts/install-pcscd-driver.sh DEVICE makes the reader permanent)"
fi

heading "The library's log: every frame in (<) and out (>) of the last command"
log="$(find "$till/Log" -name '*.log' -type f | head -n 1)"
if [ -n "$log" ]; then
  echo "(${log#"$till/"}, the last 15 lines, long frames cut short)"
  tail -n 15 "$log" | tr -d '\r' |
    awk '{ if (length($0) > 100) print substr($0, 1, 96) " ..."; else print }'
else
  echo "(no log file was written)"
fi

echo
echo "Done. The simulator is stopped and $till removed."
