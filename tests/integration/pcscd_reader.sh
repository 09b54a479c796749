#!/bin/bash
# The reader driver under a private pcscd, against the simulator and an unmodified pyscard client.
# Usage: pcscd_reader.sh DRIVER SIMULATOR CLIENT VARNIK_CLI LIBRARY
set -u
driver=$(realpath "$1") sim=$2 client=$3 cli=$4 library=$5

# The daemon listens on /run/pcscd whatever it is told: it runs in a mount namespace of its own
# over a fresh tmpfs (over /run where there is no /run/pcscd). The system's is never touched.
if [ -z "${VARNIK_PCSCD_NAMESPACE:-}" ]; then
    if [ "$(id -u)" != 0 ] || ! command -v pcscd >/dev/null ||
        ! /usr/bin/python3 -c 'import smartcard'; then
        echo "SKIP: needs root, pcscd and python3-pyscard"
        exit 77
    fi
    VARNIK_PCSCD_NAMESPACE=1 exec unshare -m --propagation private --fork --kill-child "$0" "$@"
fi
mount -t tmpfs tmpfs /run/pcscd 2>/dev/null || mount -t tmpfs tmpfs /run || exit 1
# The installer's folders, private too: the daemon then runs the driver as the installer left it.
drivers=$(pkg-config --variable=usbdropdir libpcsclite) confdir=$(pkg-config --variable=serialconfdir libpcsclite)
mount -t tmpfs tmpfs "$drivers" && mount -t tmpfs tmpfs "$confdir" || exit 1
installer=$(dirname "$0")/../../scripts/install-pcscd-driver.sh
work=$(mktemp -d) pids="" failures=0
trap 'kill $pids 2>/dev/null; wait; rm -rf "$work"' EXIT

# The simulator on $work/COM7, then the daemon with that as its reader; both die with us.
simulate() {
    setpriv --pdeathsig KILL "$sim" --quiet --link "$work/COM7" "$@" 2>"$work/sim.log" &
    simulator=$!
    until [ -e "$work/COM7" ]; do sleep 0.05; done
}
start() {
    simulate "$@"
    "$installer" "$work/COM7" "$driver" >"$work/install.log" || { cat "$work/install.log"; exit 1; }
    setpriv --pdeathsig KILL pcscd -f -d -c "$confdir/varnik" >"$work/pcscd.log" 2>&1 &
    pids="$simulator $!"
    for _ in $(seq 100); do [ -S /run/pcscd/pcscd.comm ] && break; sleep 0.05; done
}

# expect SCENARIO KEY REGEX: the client's KEY line matches; the logs follow a failure.
expect() {
    local line
    line=$(grep -m 1 "^$2=" "$work/client.out")
    [[ "${line#*=}" =~ ^$3$ ]] && return
    echo "FAIL [$1] $2: wanted /$3/, got \"${line#*=}\""
    failures=$((failures + 1))
    tail -n 30 "$work/client.err" "$work/pcscd.log" "$work/sim.log"
}

# The port vanishes under the daemon and comes back; the client reads the card with its photo
# and sees it go and come back; the library's exports get 110 while the daemon has the port.
start --vanish-after 2
until [ ! -e "$work/COM7" ]; do sleep 0.05; done
kill "$simulator"
simulate --split 3:50  # another terminal takes the name, one that pauses inside its frames
pids="$pids $simulator"
timeout 60 /usr/bin/python3 "$client" card "$simulator" >"$work/client.out" 2>"$work/client.err"
mkdir -p "$work/till/config" && cp "$library" "$work/till/lib.so"
ln -s "$work/COM7" "$work/till/config/COM7"
echo "busy=$("$cli" --lib "$work/till/lib.so" checkport 7 2>&1)" >>"$work/client.out"
expect card readers "NEW6210 Reader Card 00 00"
expect card present "1 3B( [0-9A-F]{2})+"
expect card connect "0 protocol 1"
expect card citizen 1234567890121
expect card photo "5118 FFD8 FFD9"
expect card removed "1.*"
expect card inserted "1 3B( [0-9A-F]{2})+"
expect card busy ".*\(110\)\."
kill $pids 2>/dev/null; wait; rm -f /run/pcscd/*

start --reply 3801=  # the card opens, but no APDU is ever answered
timeout 30 /usr/bin/python3 "$client" silent >"$work/client.out" 2>"$work/client.err"
# Diagnosable in the daemon's log, and the port opened afresh after the lost answer.
for _ in $(seq 20); do grep -q "answers again" "$work/pcscd.log" && break; sleep 0.1; done
echo "log=$(grep -c -e "no answer to 38:01" -e "answers again" "$work/pcscd.log")" >>"$work/client.out"
expect silent connect "0 protocol 1"
expect silent transmit "0x80100016 after [4-7] s"
expect silent still_listed 1
expect silent log 2
kill $pids 2>/dev/null; wait; rm -f /run/pcscd/*

# A terminal that is off when the daemon starts, then on, then off again: while it is silent
# (or its port is gone) the slot is empty, as in a reader with no card, never unavailable.
state() {
    timeout 40 /usr/bin/python3 "$client" state >"$work/client.out" 2>"$work/client.err"
    expect "$1" state "$2"
    expect "$1" connect "$3"
}
start --silent
state off-at-start EMPTY 0x8010000C
kill "$simulator"; simulate; pids="$pids $simulator"
state on PRESENT 0x00000000
kill "$simulator"; simulate --silent; pids="$pids $simulator"
state off EMPTY 0x8010000C
# The daemon ran the stripped copy; --remove takes it and the entry away.
echo "symtab=$(readelf -S "$drivers/serial/libifd_varnik.so" | grep -c '\.symtab')" >>"$work/client.out"
"$installer" --remove | grep -c "^Removed " | sed 's/^/removed=/' >>"$work/client.out"
expect install symtab 0
expect install removed 2
[ "$failures" = 0 ] && echo "all scenarios passed"
exit $((failures > 0))
