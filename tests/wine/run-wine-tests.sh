#!/usr/bin/env bash
# Runs the Windows build under Wine: a fresh Wine prefix, then per scenario a program on a
# pseudo-terminal linked in as a COM port (the terminal simulator, or for the driver's own test
# a scripted peer), a Windows program against it, and checks of what reached the far end and
# of the log.
#
#   run-wine-tests.sh --dll Varnik.dll --host wine_host.exe --sim new6210-sim
#                     [--win32-test wine_win32_test.exe]
#                     [--notransmit-host wine_notransmit_host.exe] [--fake-winscard winscard.dll]
#                     [--wine wine64] [--keep] [scenario ...]
#
# wine_win32_test.exe and wine_notransmit_host.exe are looked for beside wine_host.exe, the
# stand-in winscard.dll in fake-winscard/ there, unless given. With no scenario names, all of
# them run. --keep leaves the work folder for a look afterwards.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
dll="" host="" win32_test="" notransmit_host="" fake_winscard="" sim="" wine="" keep=0
scenarios=()
while [ $# -gt 0 ]; do
  case "$1" in
    --dll) dll="$2"; shift 2 ;;
    --host) host="$2"; shift 2 ;;
    --win32-test) win32_test="$2"; shift 2 ;;
    --notransmit-host) notransmit_host="$2"; shift 2 ;;
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
[ -n "$win32_test" ] || win32_test="$(dirname "$host")/wine_win32_test.exe"
[ -n "$notransmit_host" ] || notransmit_host="$(dirname "$host")/wine_notransmit_host.exe"
[ -n "$fake_winscard" ] || fake_winscard="$(dirname "$host")/fake-winscard/winscard.dll"

for file in "$dll" "$host" "$win32_test" "$notransmit_host" "$fake_winscard" "$sim"; do
  if [ -z "$file" ] || [ ! -f "$file" ]; then
    echo "missing: '$file' (need --dll, --host, --sim, and beside the host" \
      "wine_win32_test.exe, wine_notransmit_host.exe and fake-winscard/winscard.dll)" >&2
    exit 2
  fi
done
if [ -z "$wine" ]; then
  wine=$(command -v wine64 || true)
  [ -n "$wine" ] || [ ! -x /usr/lib/wine/wine64 ] || wine=/usr/lib/wine/wine64
fi
[ -n "$wine" ] || { echo "wine64 not found" >&2; exit 2; }
wineserver=$(command -v wineserver || echo "$(dirname "$wine")/wineserver")

port=7
work=$(mktemp -d "${TMPDIR:-/tmp}/varnik-wine.XXXXXX")
export WINEPREFIX="$work/prefix"
export WINEDEBUG=-all
# No Mono or Gecko download prompts in a fresh prefix.
export WINEDLLOVERRIDES="mscoree,mshtml="
export WINEARCH=win64
line_end_pid=""

stop_line_end() {
  if [ -n "$line_end_pid" ]; then
    kill "$line_end_pid" 2>/dev/null || true
    wait "$line_end_pid" 2>/dev/null || true
    line_end_pid=""
  fi
}

cleanup() {
  stop_line_end
  "$wineserver" -k 2>/dev/null || true
  if [ "$keep" -eq 1 ]; then
    echo "work folder kept: $work"
  else
    rm -rf "$work"
  fi
}
trap cleanup EXIT

failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

echo "== wine prefix in $WINEPREFIX"
"$wine" wineboot.exe -i >"$work/wineboot.log" 2>&1 || {
  cat "$work/wineboot.log"
  echo "wineboot failed" >&2
  exit 1
}
# No X display here: Wine's null graphics driver lets the host create its (hidden) window.
"$wine" reg.exe add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f \
  >>"$work/wineboot.log" 2>&1
"$wineserver" -w

# A library folder: Varnik.dll, the given files (pairs of source and name) and a config folder
# whose debug.json turns the log on.
make_folder() {
  local folder="$1"
  shift
  mkdir -p "$folder/config"
  cp "$dll" "$folder/Varnik.dll"
  while [ $# -gt 0 ]; do
    cp "$1" "$folder/$2"
    shift 2
  done
  printf '{"mode":1}' >"$folder/config/debug.json"
}

# A folder as Windows sees it, through drive Z: (the Unix root).
windows_path() {
  printf 'Z:%s' "${1//\//\\}"
}

app="$work/app"
make_folder "$app" "$host" wine_host.exe "$win32_test" wine_win32_test.exe

# Starts a program that serves a pseudo-terminal. Its first line on standard output names the
# pty: from then on it listens.
start_line_end() {
  coproc LINE_END { exec "$@"; }
  line_end_pid=$LINE_END_PID
  local pty=""
  if ! read -r -t 20 pty <&"${LINE_END[0]}"; then
    echo "$(basename "$1") did not start" >&2
    exit 1
  fi
  echo "$(basename "$1") on $pty"
}

# Runs the command after "--" with the simulator linked as COM$port, given the options before
# it. What the simulator received goes to $bytes as "<02><34>...", so that counting a sequence
# can't straddle two bytes.
bytes=""
with_simulator() {
  local record="$work/$scenario.rec" options=()
  while [ "$1" != "--" ]; do
    options+=("$1")
    shift
  done
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
    local needle="<${1// /><}>" rest found
    rest=${bytes//"$needle"/}
    found=$(((${#bytes} - ${#rest}) / ${#needle}))
    if [ "$2" = "some" ]; then
      [ "$found" -gt 0 ] || fail "$scenario: the far end never received $1"
    elif [ "$found" -ne "$2" ]; then
      fail "$scenario: the far end received $1 $found time(s), expected $2"
    fi
    shift 2
  done
}

# The log of this scenario's run, with CR LF turned into LF.
log_text() {
  tr -d '\r' <"$work/$scenario.log" 2>/dev/null || true
}

# Each log line is "<stamp>\t<text>"; each argument must be the whole text after the tab of one.
expect_log() {
  local line
  for line in "$@"; do
    grep -qxF -- "$line" <(log_text | cut -f2-) || fail "$scenario: no log line \"$line\""
  done
}

# A frame the library sent: at the far end as often as given, and in the log as ">02:34:...".
expect_sent() {
  expect_bytes "$1" "$2"
  expect_log ">${1// /:}"
}

# A wait cancelled from a window message: exactly one CAN on the line, the terminal's CAN back.
expect_cancelled() {
  expect_bytes "18" 1
  expect_log "Pos Cancel " ">18" "<18"
}

# Text as the log writes bytes: "AB" as "41:42".
text_hex() {
  printf '%s' "$1" | od -An -v -tx1 | tr 'a-f' 'A-F' | tr -s ' \n' '\n' | sed '/^$/d' |
    paste -sd: -
}

# What the library read from the terminal: its "<" log lines are pieces of one byte stream,
# cut wherever a read happened to end. Looks for the bytes "41:42:..." anywhere in it.
expect_received() {
  local stream
  stream=":$(log_text | cut -f2- | sed -n 's/^<//p' | paste -sd: -):"
  [[ "$stream" == *":$1:"* ]] || fail "$scenario: the library never received $1"
}

# Runs a program of the given folder there, under a time limit; its output goes to the
# terminal and to $work/<scenario>.out, the logs of the run to $work/<scenario>.log.
run_in_folder() {
  local folder="$1" program="$2"
  shift 2
  local status=0
  rm -f "$folder"/Log/*/*.log
  (cd "$folder" && timeout 120 "$wine" "$folder/$program" "$@") >"$work/$scenario.out" 2>&1 ||
    status=$?
  sed 's/^/  | /' "$work/$scenario.out"
  cat "$folder"/Log/*/*.log >"$work/$scenario.log" 2>/dev/null || true
  if [ "$status" -eq 124 ]; then
    fail "$scenario: $program did not finish within 120 s"
  elif [ "$status" -ne 0 ]; then
    fail "$scenario: $program exited with $status"
  fi
}

# wine_host.exe's scenario of the same name on the library of the app folder, with the given
# settings.
run_host() {
  run_in_folder "$app" wine_host.exe "$(windows_path "$app")\\Varnik.dll" "$port" "$@" "$scenario"
}

# --- scenarios ---------------------------------------------------------------------------

# The platform layer and the COM port driver on Wine, the driver against a scripted far end;
# COM9 is no serial device at all. The cases and their checks are in WineWin32Test.cpp.
scenario_win32() {
  local peer_port=8 null_port=9
  start_line_end python3 "$here/port_peer.py" "$WINEPREFIX/dosdevices/com$peer_port"
  ln -sfn /dev/null "$WINEPREFIX/dosdevices/com$null_port"
  run_in_folder "$app" wine_win32_test.exe "$peer_port" "$null_port"
  stop_line_end
}

# Probe and version read: the probe frame goes out and is acknowledged, the version frame gets
# the simulator's version text back.
scenario_version() {
  local text="NEW6210 WINE 2.5"
  with_simulator --version-text "$text" -- run_host "version=$text"
  expect_sent "02 34 03 34" some
  expect_sent "02 3B 03 3B" 1
  expect_bytes "18" 0
  expect_log "check device port $port" "Open Port  was Successful : $port" "<06" "$text" \
    "Close Device was Successful"
}

# Cancel from a window message that the library's own wait dispatches: the simulator holds the
# version reply until it sees CAN, gets exactly one, and answers with CAN.
scenario_cancel() {
  with_simulator --hold 3B -- run_host
  expect_bytes "02 3B 03 3B" 1
  expect_cancelled
}

# A message dispatched by the wait keeps the host busy while the version reply arrives: the
# reply is read whole afterwards, and no CAN goes out.
scenario_busymessage() {
  with_simulator -- run_host "version=NEW6210 SIM 1.0"
  expect_bytes "02 3B 03 3B" 1 "18" 0
}

# The card slot as a Windows host's PC/SC reader: ReaderSelect hooks winscard.dll, and the Thai
# ID card's citizen number comes through SCardTransmit, also through a pointer taken before.
connected="SCardConnect(NEW6210 Reader Card,hCard:0x1234 status:[0x0]) called"
scenario_pcsc() {
  with_simulator -- run_host
  expect_bytes "02 38 02 03 3A" 1 "02 38 03 03 3B" 1 \
    "02 38 01 0D 00 A4 04 00 08 A0 00 00 00 54 48 00 01 03 21" 1
  expect_log "Redirection WinCard completed" "-> Found readers: NEW6210 Reader Card" "$connected"
}

# ReaderSelect against a winscard.dll without SCardTransmit: the tests' stand-in, in a folder of
# its own beside the library and a host that does not import winscard.dll, so that the
# library's LoadLibraryA finds it first. "winscard=n" lets it win over Wine's builtin. The five
# functions before SCardTransmit stay hooked, and the notice box is answered by the host; the
# checks of the calls are in NoTransmitHost.cpp.
scenario_notransmit() {
  local folder="$work/notransmit"
  make_folder "$folder" "$notransmit_host" wine_notransmit_host.exe "$fake_winscard" winscard.dll
  WINEDLLOVERRIDES="$WINEDLLOVERRIDES;winscard=n" with_simulator -- run_in_folder "$folder" \
    wine_notransmit_host.exe "$(windows_path "$folder")\\Varnik.dll" "$port" notransmit
  grep -qxF "PASS notransmit" <(tr -d '\r' <"$work/notransmit.out") ||
    fail "notransmit: the host did not pass"
  expect_bytes "02 38 02 03 3A" 1 "02 38 03 03 3B" 1
  expect_log "Not Found SCardTransmit" "$connected"
  if grep -qF "Redirection WinCard completed" <(log_text); then
    fail "notransmit: the log says the redirection completed"
  fi
}

# A swipe: the swipe frame goes out once, the simulator's stripe (its default, given here so
# that the host can work out the track text) comes back and reaches the caller as tracks.
swipe_frame="02 33 52 53 77 69 70 65 20 43 61 72 64 20 3A 00 03 37"
scenario_swipe() {
  local stripe="4111111111111111=2512101|4111111111111111=2512|"
  with_simulator --stripe "$stripe" -- run_host "stripe=$stripe"
  expect_sent "$swipe_frame" 1
  expect_bytes "18" 0
  expect_received "02:$(text_hex "$stripe"):03"
  expect_log "Close Device was Successful"
}

# Nobody swipes: a cancel from a window message during the wait puts exactly one CAN on the
# line, and the simulator's CAN ends the read.
scenario_swipecancel() {
  with_simulator --swipe-wait -- run_host
  expect_bytes "$swipe_frame" 1
  expect_cancelled
  expect_log "Close Device was Successful"
}

# The Thai ID card read by the terminal, in text form (mode 0, TIS-620 turned into UTF-8) and as
# the binary block (mode 2: the record and the simulator's 5118-byte photo behind a length).
scenario_thaiid() {
  local prompt="49 6E 73 65 72 74 20 43 61 72 64 20 3A 00"
  with_simulator -- run_host photo=5118
  expect_sent "02 32 00 00 $prompt 03 0B" 1
  expect_sent "02 32 00 02 $prompt 03 09" 1
  expect_bytes "18" 0
  expect_received "02:$(text_hex "1234567890121|")"
  expect_log "Close Device was Successful"
}

# A 1 MB file through PosExec to a terminal on a line so slow that one 204,800-byte block
# outlasts the port's 5 s write time-out: it must arrive whole, with the size and CRC-32 it
# was announced with ("stored" in the record).
scenario_upload() {
  head -c 1048576 /dev/urandom >"$work/upload.bin"
  with_simulator --throttle=345600 -- run_host "file=Z:$work/upload.bin"
  grep -qP '^stored\tupload\.bin\t1048576\t' "$work/upload.rec.files" ||
    fail "upload: the terminal did not store upload.bin whole"
  expect_log "update completed"
}

for scenario in "${scenarios[@]}"; do
  if ! declare -F "scenario_$scenario" >/dev/null; then
    fail "no scenario named $scenario"
    continue
  fi
  echo "== $scenario"
  before=$failures
  "scenario_$scenario"
  if [ "$failures" -eq "$before" ]; then
    echo "PASS: $scenario"
  else
    echo "log of this scenario:"
    log_text | sed 's/^/  | /'
  fi
done

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all Wine scenarios passed"
