#!/usr/bin/env bash
# Runs the Windows build under Wine: a fresh Wine prefix, then per scenario a program on a
# pseudo-terminal linked in as a COM port (the terminal simulator, or for the driver's own test
# a scripted peer), wine_host.exe's scenario of that name against it, and checks of what
# reached the far end and of the library's log.
#
#   run-wine-tests.sh --dll Varnik.dll --host wine_host.exe --sim new6210-sim
#                     [--fake-winscard winscard.dll] [--wine wine64] [--keep] [scenario ...]
#
# The stand-in winscard.dll is looked for in fake-winscard/ beside wine_host.exe unless given.
# With no scenario names, all of them run. --keep leaves the work folder for a look afterwards.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
dll="" host="" fake_winscard="" sim="" wine="" keep=0
scenarios=()
while [ $# -gt 0 ]; do
  case "$1" in
    --dll) dll="$2"; shift 2 ;;
    --host) host="$2"; shift 2 ;;
    --fake-winscard) fake_winscard="$2"; shift 2 ;;
    --sim) sim="$2"; shift 2 ;;
    --wine) wine="$2"; shift 2 ;;
    --keep) keep=1; shift ;;
    -*) echo "unknown option: $1" >&2; exit 2 ;;
    *) scenarios+=("$1"); shift ;;
  esac
done
[ ${#scenarios[@]} -gt 0 ] ||
  scenarios=(win32 version cancel busymessage pcsc notransmit swipe swipecancel thaiid upload)
[ -n "$fake_winscard" ] || fake_winscard="$(dirname "$host")/fake-winscard/winscard.dll"
for file in "$dll" "$host" "$fake_winscard" "$sim"; do
  [ -n "$file" ] && [ -f "$file" ] || {
    echo "missing: '$file' (need --dll, --host, --sim and fake-winscard/winscard.dll)" >&2
    exit 2
  }
done
# Debian keeps wine64 out of PATH.
[ -n "$wine" ] || wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
[ -x "$wine" ] || { echo "wine64 not found" >&2; exit 2; }
wineserver=$(command -v wineserver || echo "$(dirname "$wine")/wineserver")

port=7
work=$(mktemp -d "${TMPDIR:-/tmp}/varnik-wine.XXXXXX")
export WINEPREFIX="$work/prefix" WINEDEBUG=-all WINEARCH=win64
# No Mono or Gecko download prompts in a fresh prefix.
export WINEDLLOVERRIDES="mscoree,mshtml="
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
"$wine" wineboot.exe -i >"$work/wineboot.log" 2>&1 || { cat "$work/wineboot.log"; exit 1; }
# No X display here: Wine's null graphics driver lets the host create its (hidden) window.
"$wine" reg.exe add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >>"$work/wineboot.log" 2>&1
"$wineserver" -w

# A library folder: Varnik.dll, wine_host.exe, the given files (pairs of source and name) and a
# config folder whose debug.json turns the log on.
make_folder() {
  local folder="$1"
  shift
  mkdir -p "$folder/config"
  cp "$dll" "$folder/Varnik.dll"
  cp "$host" "$folder/wine_host.exe"
  while [ $# -gt 0 ]; do cp "$1" "$folder/$2"; shift 2; done
  printf '{"mode":1}' >"$folder/config/debug.json"
}
app="$work/app"
make_folder "$app"

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
# can't straddle two bytes.
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

# Each argument must be the whole text of a log line; "!text": of none.
expect_log() {
  local line
  for line in "$@"; do
    if [ "${line:0:1}" = "!" ]; then
      ! grep -qxF -- "${line:1}" <(log_text) || fail "the log line \"${line:1}\""
    else
      grep -qxF -- "$line" <(log_text) || fail "no log line \"$line\""
    fi
  done
}

# What the library read from the terminal: its "<" log lines are pieces of one byte stream,
# cut wherever a read happened to end. Looks for the text's bytes anywhere in it.
expect_received() {
  local stream wanted
  stream=":$(log_text | sed -n 's/^<//p' | paste -sd: -):"
  wanted=$(printf '%s' "$1" | od -An -v -tx1 | tr 'a-f ' 'A-F\n' | sed '/^$/d' | paste -sd: -)
  [[ "$stream" == *":$wanted:"* ]] || fail "the library never received \"$1\""
}

# wine_host.exe's scenario of the same name, in the given folder (the app folder by default),
# under a time limit; its output goes to the terminal, the library's log of the run to
# $work/<scenario>.log.
run_host() {
  local folder="$app" status=0
  [ "${1:-}" != "--in" ] || { folder="$2"; shift 2; }
  rm -f "$folder"/Log/*/*.log
  (cd "$folder" && timeout 120 "$wine" "$folder/wine_host.exe" "$scenario" "$port" "$@") 2>&1 |
    sed 's/^/  | /' || status=$?
  cat "$folder"/Log/*/*.log >"$work/$scenario.log" 2>/dev/null || true
  [ "$status" -eq 0 ] || fail "wine_host.exe exited with $status (124: took over 120 s)"
}

# --- scenarios ---------------------------------------------------------------------------
# The frames as the far end got them and the log shows them (">02:34:03:34").
probe="02 34 03 34" version="02 3B 03 3B" can="18"
open_apdu="02 38 02 03 3A" close_apdu="02 38 03 03 3B"
swipe="02 33 52 53 77 69 70 65 20 43 61 72 64 20 3A 00 03 37"
thai_prompt="49 6E 73 65 72 74 20 43 61 72 64 20 3A 00"
connected="SCardConnect(NEW6210 Reader Card,hCard:0x1234 status:[0x0]) called"
cancelled=("Pos Cancel " ">18" "<18")

# The platform layer and the COM port driver against a scripted far end on COM$port; the
# COM number given as null= is no serial device at all.
scenario_win32() {
  start_line_end python3 "$here/port_peer.py" "$WINEPREFIX/dosdevices/com$port"
  ln -sfn /dev/null "$WINEPREFIX/dosdevices/com9"
  run_host null=9
  stop_line_end
}

# Probe and version read: the probe frame goes out and is acknowledged, the version frame gets
# the simulator's version text back.
scenario_version() {
  local text="NEW6210 WINE 2.5"  # the text wine_host.exe expects
  with_simulator --version-text "$text" -- run_host
  expect_bytes "$probe" some "$version" 1 "$can" 0
  expect_log ">02:34:03:34" ">02:3B:03:3B" "check device port $port" \
    "Open Port  was Successful : $port" "<06" "$text" "Close Device was Successful"
}

# Cancel from a window message that the library's own wait dispatches: the simulator holds the
# version reply until it sees CAN, gets exactly one, and answers with CAN.
scenario_cancel() {
  with_simulator --hold 3B -- run_host
  expect_bytes "$version" 1 "$can" 1
  expect_log "${cancelled[@]}"
}

# A message dispatched by the wait keeps the host busy while the version reply arrives: the
# reply is read whole afterwards, and no CAN goes out.
scenario_busymessage() {
  with_simulator -- run_host
  expect_bytes "$version" 1 "$can" 0
}

# The card slot as a Windows host's PC/SC reader: ReaderSelect hooks winscard.dll, and the Thai
# ID card's citizen number comes through SCardTransmit, also through a pointer taken before.
scenario_pcsc() {
  with_simulator -- run_host
  expect_bytes "$open_apdu" 1 "$close_apdu" 1 \
    "02 38 01 0D 00 A4 04 00 08 A0 00 00 00 54 48 00 01 03 21" 1
  expect_log "Redirection WinCard completed" "-> Found readers: NEW6210 Reader Card" "$connected"
}

# ReaderSelect against a winscard.dll without SCardTransmit: the tests' stand-in, in a folder of
# its own beside the library, so that the library's LoadLibraryA finds it first; "winscard=n"
# lets it win over Wine's builtin. The five functions before SCardTransmit stay hooked.
scenario_notransmit() {
  make_folder "$work/notransmit" "$fake_winscard" winscard.dll
  WINEDLLOVERRIDES="$WINEDLLOVERRIDES;winscard=n" with_simulator -- \
    run_host --in "$work/notransmit"
  expect_bytes "$open_apdu" 1 "$close_apdu" 1
  expect_log "Not Found SCardTransmit" "$connected" "!Redirection WinCard completed"
}

# A swipe: the swipe frame goes out once, the simulator's stripe comes back and reaches the
# caller as tracks.
scenario_swipe() {
  local stripe="4111111111111111=2512101|4111111111111111=2512|"
  with_simulator --stripe "$stripe" -- run_host
  expect_bytes "$swipe" 1 "$can" 0
  expect_log ">${swipe// /:}" "Close Device was Successful"
  expect_received "$stripe"
}

# Nobody swipes: a cancel from a window message during the wait puts exactly one CAN on the
# line, and the simulator's CAN ends the read.
scenario_swipecancel() {
  with_simulator --swipe-wait -- run_host
  expect_bytes "$swipe" 1 "$can" 1
  expect_log "${cancelled[@]}" "Close Device was Successful"
}

# The Thai ID card read by the terminal, in text form (mode 0) and as the binary block (mode 2:
# the record and the simulator's 5118-byte photo).
scenario_thaiid() {
  with_simulator -- run_host photo=5118
  expect_bytes "02 32 00 00 $thai_prompt 03 0B" 1 "02 32 00 02 $thai_prompt 03 09" 1 "$can" 0
  expect_log ">02:32:00:00:${thai_prompt// /:}:03:0B" ">02:32:00:02:${thai_prompt// /:}:03:09" \
    "Close Device was Successful"
  expect_received "1234567890121|"
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

for scenario in "${scenarios[@]}"; do
  echo "== $scenario"
  before=$failures
  if declare -F "scenario_$scenario" >/dev/null; then "scenario_$scenario"; else fail "no such scenario"; fi
  if [ "$failures" -eq "$before" ]; then
    echo "PASS: $scenario"
  else
    echo "log of this scenario:"
    log_text | sed 's/^/  | /'
  fi
done
[ "$failures" -eq 0 ] || { echo "$failures check(s) failed"; exit 1; }
echo "all Wine scenarios passed"
