#!/bin/bash
# The reader driver under a private pcscd, against the simulator: an unmodified pyscard client
# reads the Thai ID card with its photo and sees the card go and come back; a terminal that
# never answers an APDU gives the client an error within the driver's deadline, and the daemon
# goes on serving; while the daemon holds the port, the library's exports answer 110.
# Usage: pcscd_reader.sh DRIVER SIMULATOR CLIENT VARNIK_CLI LIBRARY
#
# The daemon always listens on /run/pcscd/pcscd.comm, so the script runs itself again in a mount
# namespace of its own with a fresh tmpfs there: a daemon of the system is never touched.
set -u
driver=$(realpath "$1") sim=$2 client=$3 cli=$4 library=$5

if [ -z "${VARNIK_PCSCD_NAMESPACE:-}" ]; then
    if [ "$(id -u)" != 0 ] || ! command -v pcscd >/dev/null || ! /usr/bin/python3 -c 'import smartcard'; then
        echo "SKIP: needs root, pcscd and python3-pyscard"
        exit 77
    fi
    VARNIK_PCSCD_NAMESPACE=1 exec unshare -m --propagation private --fork --kill-child "$0" "$@"
fi

# Over /run itself where the system has no /run/pcscd to mount on; only this namespace sees it.
if [ -d /run/pcscd ]; then mount -t tmpfs tmpfs /run/pcscd; else mount -t tmpfs tmpfs /run; fi || exit 1
work=$(mktemp -d)
pids=""
failures=0
trap 'kill $pids 2>/dev/null; wait; rm -rf "$work"' EXIT

# The simulator with the given options, its pty linked as $work/COM7; it dies with this script
# whatever ends it.
simulate() {
    setpriv --pdeathsig KILL "$sim" --quiet --link "$work/COM7" "$@" >"$work/sim.out" 2>"$work/sim.log" &
    simulator=$!
    until [ -e "$work/COM7" ]; do sleep 0.05; done
}

# The simulator, and a daemon whose one reader is the driver on the simulator's link.
start() {
    rm -rf "$work"/* /run/pcscd 2>/dev/null
    simulate "$@"
    mkdir "$work/conf"
    printf 'FRIENDLYNAME "NEW6210 Reader Card"\nDEVICENAME %s\nLIBPATH %s\n' \
        "$work/COM7" "$driver" >"$work/conf/varnik"
    setpriv --pdeathsig KILL pcscd --foreground --debug --config "$work/conf" >"$work/pcscd.log" 2>&1 &
    daemon=$!
    pids="$simulator $daemon"
    for _ in $(seq 100); do [ -S /run/pcscd/pcscd.comm ] && break; sleep 0.05; done
}

stop() {
    kill $pids 2>/dev/null
    wait $pids 2>/dev/null
    pids=""
}

# expect SCENARIO KEY PATTERN: the client's KEY line matches the extended regex PATTERN.
expect() {
    local line
    line=$(grep -m 1 "^$2=" "$work/client.out")
    if ! [[ "${line#*=}" =~ ^$3$ ]]; then
        echo "FAIL [$1] $2: wanted /$3/, got \"${line#*=}\""
        failures=$((failures + 1))
    fi
}

show_logs() {
    [ "$failures" = 0 ] && return
    echo "--- client"; cat "$work/client.out" "$work/client.err"
    echo "--- pcscd"; tail -n 40 "$work/pcscd.log"
    echo "--- simulator"; tail -n 20 "$work/sim.log"
}

# The first terminal's port vanishes under the daemon and another one takes its name: the
# driver opens it again, and the client finds the reader working.
start --vanish-after 2
until [ ! -e "$work/COM7" ]; do sleep 0.05; done
kill "$simulator"
simulate
pids="$pids $simulator"
timeout 60 /usr/bin/python3 "$client" card "$simulator" >"$work/client.out" 2>"$work/client.err"
expect card readers "NEW6210 Reader Card 00 00"
expect card present "1 3B.*"
expect card connect "0 protocol 1"
expect card select 9000
expect card citizen 1234567890121
expect card photo "5118 FFD8 FFD9"
expect card removed 1.*
expect card inserted "1 3B( [0-9A-F]{2})+"
# The library's folder: it opens port 7 as config/COM7, here the same pty.
mkdir -p "$work/till/config"
cp "$library" "$work/till/"
ln -s "$work/COM7" "$work/till/config/COM7"
echo "busy=$("$cli" --lib "$work/till/$(basename "$library")" checkport 7 2>&1)" >>"$work/client.out"
expect card busy ".*110.*"
show_logs
stop

# The card is in and opens, but the terminal never answers an APDU.
start --reply 3801=
timeout 30 /usr/bin/python3 "$client" silent >"$work/client.out" 2>"$work/client.err"
expect silent connect "0 protocol 1"
expect silent transmit "0x80100016 after [4-7] s"
expect silent still_listed 1
# Diagnosable from the daemon's log, and the port opened afresh after the lost answer.
[ "$(grep -c -e "no answer to 38:01" -e "varnik: .* opened" "$work/pcscd.log")" -ge 3 ] ||
    { echo "FAIL [silent] log lines"; failures=$((failures + 1)); }
show_logs
stop

[ "$failures" = 0 ] && echo "all scenarios passed"
exit $((failures > 0))
