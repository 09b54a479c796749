#!/usr/bin/env bash
# Runs the Windows build under Wine: a fresh Wine prefix, then per scenario a program on a
# pseudo-terminal linked in as a COM port (the terminal simulator, or for the driver's own test
# a scripted peer), wine_host.exe's scenario of that name against it, and checks of what
# reached the far end and of the library's log.
#
#   run-wine-tests.sh WINE Varnik.dll wine_host.exe new6210-sim PTY_MODEM WAIT [--keep] [scenario ...]
#
# WINE is the loader of the DLL's kind: wine64 for the x64 build, wine (wine32) for the x86 one,
# each in a prefix of its own kind. PTY_MODEM is the preload that makes the pty behave as a UART
# (pty_modem.so; a path with $LIB, so that 32- and 64-bit processes each find their build). WAIT
# is the port wait that the library must use: "event" (WaitCommEvent, which needs the preload's
# modem lines) or "read" (the one-byte read watch that the library falls back to where the event
# watch ends at once, as it does on a bare pty). The log must show that wait and no other. With
# no scenario names, all of them run. --keep leaves the work folder for a look afterwards.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
wine="$1" dll="$2" host="$3" sim="$4" preload="$5" wait_kind="$6" keep=0
shift 6
[ "${1:-}" != --keep ] || { keep=1; shift; }
scenarios=("$@")
[ ${#scenarios[@]} -gt 0 ] ||
  scenarios=(win32 version cancel threadcancel busymessage silence gap unplug pcsc upload portscan)
for file in "$wine" "$dll" "$host" "$sim"; do
  [ -f "$file" ] || { echo "missing: '$file'" >&2; exit 2; }
done
case "$wait_kind" in
  event) modem_lines=1 ;;
  read) modem_lines=0 ;;
  *) echo "WAIT must be event or read, not '$wait_kind'" >&2; exit 2 ;;
esac
wineserver="$(dirname "$wine")/wineserver"
[ -x "$wineserver" ] || wineserver=$(command -v wineserver)
arch=win64
[ "$(basename "$wine")" = wine64 ] || arch=win32

port=7
work=$(mktemp -d "${TMPDIR:-/tmp}/varnik-wine.XXXXXX")
export WINEPREFIX="$work/prefix" WINEDEBUG=${WINEDEBUG:--all} WINEARCH=$arch
# No Mono or Gecko download prompts in a fresh prefix.
export WINEDLLOVERRIDES="mscoree,mshtml="
# Wine's own processes alone get the preload: the far ends read their pty as it is.
run_wine() {
  LD_PRELOAD="$preload" PTY_MODEM_LINES=$modem_lines "$wine" "$@"
}
line_end_pid="" failures=0

stop_line_end() {
  [ -z "$line_end_pid" ] || { kill "$line_end_pid" 2>/dev/null; wait "$line_end_pid" 2>/dev/null; } || true
  line_end_pid=""
}
cleanup() {
  stop_line_end
  "$wineserver" -k 2>/dev/null || true
  if [ "$keep" -eq 1 ]; then echo "work folder kept: $work"; else rm -rf "$work"; fi
}
trap cleanup EXIT
fail() {
  echo "FAIL: $scenario: $*"
  failures=$((failures + 1))
}

echo "== wine prefix in $WINEPREFIX"
run_wine wineboot.exe -i >"$work/wineboot.log" 2>&1 || { cat "$work/wineboot.log"; exit 1; }
# No X display here: Wine's null graphics driver lets the host create its (hidden) window.
run_wine reg.exe add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >>"$work/wineboot.log" 2>&1
"$wineserver" -w

# The library's folder: Varnik.dll, wine_host.exe and a config folder whose debug.json turns
# the log on.
app="$work/app"
mkdir -p "$app/config"
cp "$dll" "$app/Varnik.dll"
cp "$host" "$app/wine_host.exe"
printf '{"mode":1,"waits":1}' >"$app/config/debug.json"

# Starts a program that serves a pseudo-terminal. Its first line on standard output names the
# pty: from then on it listens.
start_line_end() {
  coproc LINE_END { exec "$@"; }
  line_end_pid=$LINE_END_PID
  local pty=""
  read -r -t 20 pty <&"${LINE_END[0]}" || { echo "$(basename "$1") did not start" >&2; exit 1; }
  echo "$(basename "$1") on $pty"
}

# Runs the command after "--" with the simulator linked as COM$port, given the options before
# it. What the simulator received goes to $bytes as "<02><34>...", so that counting a sequence
# can't straddle two bytes. Scenarios give the simulator a --delay where every answer would
# otherwise come before the wait that watches for it.
bytes=""
with_simulator() {
  local record="$work/$scenario.rec" options=()
  while [ "$1" != "--" ]; do options+=("$1"); shift; done
  shift
  start_line_end "$sim" --link "$WINEPREFIX/dosdevices/com$port" --record "$record" --quiet \
    ${options[@]+"${options[@]}"}
  "$@"
  stop_line_end
  bytes=$(od -An -v -tx1 "$record" | tr 'a-f' 'A-F' | tr -s ' \n' '\n' | sed '/^$/d; s/.*/<&>/' |
    tr -d '\n')
}

# Pairs of a byte sequence and how often the far end received it ("some": at least once).
expect_bytes() {
  while [ $# -gt 0 ]; do
    local needle="<${1// /><}>" rest
    rest=${bytes//"$needle"/}
    local found=$(((${#bytes} - ${#rest}) / ${#needle}))
    [ "$2" = some ] && [ "$found" -gt 0 ] || [ "$found" = "$2" ] ||
      fail "the far end received $1 $found time(s), expected $2"
    shift 2
  done
}

# The texts of the log lines ("<stamp>\t<text>" with CR LF) of this scenario's run.
log_text() {
  tr -d '\r' <"$work/$scenario.log" 2>/dev/null | cut -f2- || true
}

# Each argument must be the whole text of a log line.
expect_log() {
  local line
  for line in "$@"; do
    grep -qxF -- "$line" <(log_text) || fail "no log line \"$line\""
  done
}

# wine_host.exe's scenario of the same name, in the app folder, under a time limit; its output goes to the terminal, the library's log of the run to
# $work/<scenario>.log.
run_host() {
  local folder="$app" status=0
  rm -f "$folder"/Log/*/*.log
  (cd "$folder" && timeout 120 env LD_PRELOAD="$preload" PTY_MODEM_LINES=$modem_lines \
    "$wine" "$folder/wine_host.exe" "$scenario" "$port" "$@") 2>&1 |
    sed 's/^/  | /' || status=$?
  cat "$folder"/Log/*/*.log >"$work/$scenario.log" 2>/dev/null || true
  [ "$status" -eq 0 ] || fail "wine_host.exe exited with $status (124: took over 120 s)"
}

# --- scenarios ---------------------------------------------------------------------------
# The frames as the far end got them and the log shows them (">02:34:03:34").
probe="02 34 03 34" version="02 3B 03 3B" can="18"
open_apdu="02 38 02 03 3A" close_apdu="02 38 03 03 3B"

# The platform layer and the COM port driver against a scripted far end on COM$port; the
# COM number given as null= is no serial device at all.
scenario_win32() {
  start_line_end python3 "$here/port_peer.py" "$WINEPREFIX/dosdevices/com$port"
  ln -sfn /dev/null "$WINEPREFIX/dosdevices/com9"
  run_host null=9
  stop_line_end
}

# Probe and version read: the probe frame goes out and is acknowledged, the version frame gets
# the simulator's version text back. The answers come late, so that a wait is under way when
# their first byte arrives.
scenario_version() {
  local text="NEW6210 WINE 2.5"  # the text wine_host.exe expects
  with_simulator --version-text "$text" --delay 100 -- run_host
  expect_bytes "$probe" some "$version" 1 "$can" 0
  expect_log ">02:34:03:34" ">02:3B:03:3B" "check device port $port" \
    "Open Port  was Successful : $port" "<06" "$text" "Close Device was Successful"
}

# Cancel from a window message that the library's own wait dispatches: the simulator holds the
# version reply until it sees CAN, gets exactly one, and answers with CAN.
scenario_cancel() {
  with_simulator --hold 3B --delay 20 -- run_host
  expect_bytes "$version" 1 "$can" 1
  expect_log "Pos Cancel " ">18" "<18"
}

# The same cancel from another thread of the host.
scenario_threadcancel() {
  scenario_cancel
}

# The end of a reply is 5 ms of silence: a 2 ms pause inside the version reply does not end it,
# a 15 ms one does (the rest comes too late and is drained by the next open).
scenario_silence() {
  with_simulator --split 4:2 --delay 20 -- run_host
  expect_bytes "$version" 1 "$can" 0
}
scenario_gap() {
  with_simulator --split 4:15 --delay 20 -- run_host
  expect_bytes "$version" 1 "$can" 0
  expect_log "<02:4E:45:57"
}

# The terminal is unplugged while getVersion waits for its reply: once the version request has
# come in, the simulator ends, which closes its pty and removes the COM link. The call ends and
# says so, and the next call finds no port.
scenario_unplug() {
  local record="$work/$scenario.rec"
  start_line_end "$sim" --link "$WINEPREFIX/dosdevices/com$port" --record "$record" --quiet \
    --hold 3B
  (until od -An -v -tx1 "$record" 2>/dev/null | tr -d ' \n' | grep -q 023b033b; do
     sleep 0.1
   done
   sleep 0.5
   kill "$line_end_pid") &
  local unplugger=$!
  run_host
  kill "$unplugger" 2>/dev/null || true
  stop_line_end
  expect_log "Com port lost"
}

# A message dispatched by the wait keeps the host busy while the version reply arrives: the
# reply is read whole afterwards, and no CAN goes out. The answers come 50 ms late, so that the
# probes wait.
scenario_busymessage() {
  with_simulator --delay 50 -- run_host
  expect_bytes "$version" 1 "$can" 0
}

# The card slot as a Windows host's PC/SC reader: ReaderSelect hooks winscard.dll, and the Thai
# ID card's citizen number comes through SCardTransmit, also through a pointer taken before.
scenario_pcsc() {
  with_simulator --delay 20 -- run_host
  expect_bytes "$open_apdu" 1 "$close_apdu" 1 \
    "02 38 01 0D 00 A4 04 00 08 A0 00 00 00 54 48 00 01 03 21" 1
  expect_log "Redirection WinCard completed" "-> Found readers: NEW6210 Reader Card" \
    "SCardConnect(NEW6210 Reader Card,hCard:0x1234 status:[0x0]) called"
}

# A 1 MB file through PosExec to a terminal on a line so slow that one 204,800-byte block
# outlasts the port's 5 s write time-out: it must arrive whole, with the size and CRC-32 it
# was announced with ("stored" in the record).
scenario_upload() {
  head -c 1048576 /dev/urandom >"$work/upload.bin"
  with_simulator --throttle=345600 -- run_host "file=Z:$work/upload.bin"
  grep -qP '^stored\tupload\.bin\t1048576\t' "$work/upload.rec.files" ||
    fail "the terminal did not store upload.bin whole"
  expect_log "update completed"
}

# Port discovery: wine_host.exe registers COM port nodes through SetupAPI, two of them with the
# description that varnik.json names (COM7 and COM9); the library's first call finds COM7 and
# reaches the simulator there. The file goes again, so that no later scenario scans.
scenario_portscan() {
  local name="NEW6210 USB Serial Port"  # the description wine_host.exe registers
  printf '{"port":0,"name":"%s"}' "$name" >"$app/config/varnik.json"
  with_simulator --delay 20 -- run_host
  rm -f "$app/config/varnik.json"
  expect_bytes "$probe" some "$version" 1
  expect_log "Scan Port [$name]: $port"
}

for scenario in "${scenarios[@]}"; do
  echo "== $scenario"
  before=$failures
  if declare -F "scenario_$scenario" >/dev/null; then "scenario_$scenario"; else fail "no such scenario"; fi
  # Every wait that the library ran is of the kind asked for ("Wait watch: ..." lines, which
  # debug.json's "waits" turns on). The fall-back starts once from the event watch, the first
  # time the process opens the port, and gives it up. The driver scenario makes no library wait.
  if [ "$scenario" != win32 ]; then
    waits=$(log_text | grep -x 'Wait watch: .*' | sed 's/^Wait watch: //' | sort | uniq -c |
      tr -s ' ' | tr '\n' ',' || true)
    case "$wait_kind:$waits" in
      "event: "*" event,"|"read: "*" read,"|"read: 1 event, "*" read,") ;;
      *) fail "the waits that ran (count kind): ${waits:-none}; asked for: $wait_kind" ;;
    esac
  fi
  if [ "$failures" -eq "$before" ]; then
    echo "PASS: $scenario"
  else
    echo "log of this scenario:"
    log_text | sed 's/^/  | /'
  fi
done
[ "$failures" -eq 0 ] || { echo "$failures check(s) failed"; exit 1; }
echo "all Wine scenarios passed ($arch, $wait_kind wait)"
