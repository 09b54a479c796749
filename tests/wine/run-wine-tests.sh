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
  scenarios=(win32 version cancel pcsc notransmit swipe swipecancel thaiid)
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

# The library's folder: the DLL, the test programs and a config folder whose debug.json turns
# the log on.
app="$work/app"
mkdir -p "$app/config"
cp "$dll" "$app/Varnik.dll"
cp "$host" "$app/wine_host.exe"
cp "$win32_test" "$app/wine_win32_test.exe"
printf '{"mode":1}' >"$app/config/debug.json"
# The same folder as Windows sees it, through drive Z: (the Unix root).
app_windows="Z:${app//\//\\}"

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

# The simulator, linked as COM$port, recording what it receives; extra options follow.
start_simulator() {
  local record="$1"
  shift
  start_line_end "$sim" --link "$WINEPREFIX/dosdevices/com$port" --record "$record" --quiet "$@"
}

# Recorded bytes as "<02><34>...", so that counting a sequence can't straddle two bytes.
recorded_bytes() {
  od -An -v -tx1 "$1" | tr 'a-f' 'A-F' | tr -s ' \n' '\n' | sed '/^$/d; s/.*/<&>/' | tr -d '\n'
}

expect_bytes() {
  local name="$1" bytes="$2" sequence="$3" wanted="$4"
  local needle="<${sequence// /><}>"
  local rest=${bytes//"$needle"/}
  local found=$(((${#bytes} - ${#rest}) / ${#needle}))
  if [ "$wanted" = "some" ]; then
    [ "$found" -gt 0 ] || fail "$name: the far end never received $sequence"
  elif [ "$found" -ne "$wanted" ]; then
    fail "$name: the far end received $sequence $found time(s), expected $wanted"
  fi
}

# The log of one scenario's run, with CR LF turned into LF.
log_text() {
  tr -d '\r' <"$work/$1.log" 2>/dev/null || true
}

expect_log() {
  local name="$1" line="$2"
  # Each log line is "<stamp>\t<text>"; look for the whole text after the tab.
  grep -qxF -- "$line" <(log_text "$name" | cut -f2-) || fail "$name: no log line \"$line\""
}

# Text as the log writes bytes: "AB" as "41:42".
text_hex() {
  printf '%s' "$1" | od -An -v -tx1 | tr 'a-f' 'A-F' | tr -s ' \n' '\n' | sed '/^$/d' |
    paste -sd: -
}

# What the library read from the terminal: its "<" log lines are pieces of one byte stream,
# cut wherever a read happened to end. Looks for the bytes "41:42:..." anywhere in it.
expect_received() {
  local name="$1" sequence="$2" stream
  stream=":$(log_text "$name" | cut -f2- | sed -n 's/^<//p' | paste -sd: -):"
  [[ "$stream" == *":$sequence:"* ]] || fail "$name: the library never received $sequence"
}

# Runs a program of the given folder there, under a time limit; its output goes to the
# terminal and to $work/<name>.out.
run_in_folder() {
  local folder="$1" name="$2" program="$3"
  shift 3
  local status=0
  (cd "$folder" && timeout 120 "$wine" "$folder/$program" "$@") >"$work/$name.out" 2>&1 ||
    status=$?
  sed 's/^/  | /' "$work/$name.out"
  if [ "$status" -eq 124 ]; then
    fail "$name: $program did not finish within 120 s"
  elif [ "$status" -ne 0 ]; then
    fail "$name: $program exited with $status"
  fi
}

run_in_app() {
  run_in_folder "$app" "$@"
}

# wine_host.exe on the library of the app folder, with the given settings and scenarios. The
# library's log of this run is kept as $work/<name>.log.
run_host() {
  local name="$1"
  shift
  rm -f "$app"/Log/Varnik/*.log
  run_in_app "$name" wine_host.exe "$app_windows\\Varnik.dll" "$port" "$@"
  cat "$app"/Log/Varnik/*.log >"$work/$name.log" 2>/dev/null || true
}

# --- scenarios ---------------------------------------------------------------------------

# The platform layer and the COM port driver on Wine, the driver against a scripted far end;
# COM9 is no serial device at all. The cases and their checks are in WineWin32Test.cpp.
scenario_win32() {
  local peer_port=8 null_port=9
  start_line_end python3 "$here/port_peer.py" "$WINEPREFIX/dosdevices/com$peer_port"
  ln -sfn /dev/null "$WINEPREFIX/dosdevices/com$null_port"
  run_in_app win32 wine_win32_test.exe "$peer_port" "$null_port"
  stop_line_end
  cat "$app"/Log/wine_win32_test/*.log >"$work/win32.log" 2>/dev/null || true
}

# Probe and version read: the probe frame goes out and is acknowledged, the version frame gets
# the simulator's version text back.
scenario_version() {
  local record="$work/version.rec" text="NEW6210 WINE 2.5"
  start_simulator "$record" --version-text "$text"
  run_host version "version=$text" version
  stop_line_end
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes version "$bytes" "02 34 03 34" some
  expect_bytes version "$bytes" "02 3B 03 3B" 1
  expect_bytes version "$bytes" "18" 0
  expect_log version "check device port $port"
  expect_log version "Open Port  was Successful : $port"
  expect_log version ">02:34:03:34"
  expect_log version "<06"
  expect_log version ">02:3B:03:3B"
  expect_log version "$text"
  expect_log version "Close Device was Successful"
}

# Cancel from a window message that the library's own wait dispatches: the simulator holds the
# version reply until it sees CAN, gets exactly one, and answers with CAN.
scenario_cancel() {
  local record="$work/cancel.rec"
  start_simulator "$record" --hold 3B
  run_host cancel cancel
  stop_line_end
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes cancel "$bytes" "02 3B 03 3B" 1
  expect_bytes cancel "$bytes" "18" 1
  expect_log cancel "Pos Cancel "
  expect_log cancel ">18"
  expect_log cancel "<18"
}

# The card slot as a Windows host's PC/SC reader: ReaderSelect hooks winscard.dll, and the Thai
# ID card's citizen number comes through SCardTransmit, also through a pointer taken before.
scenario_pcsc() {
  local record="$work/pcsc.rec"
  start_simulator "$record"
  run_host pcsc pcsc
  stop_line_end
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes pcsc "$bytes" "02 38 02 03 3A" 1
  expect_bytes pcsc "$bytes" "02 38 01 0D 00 A4 04 00 08 A0 00 00 00 54 48 00 01 03 21" 1
  expect_bytes pcsc "$bytes" "02 38 03 03 3B" 1
  expect_log pcsc "Redirection WinCard completed"
  expect_log pcsc "-> Found readers: NEW6210 Reader Card"
  expect_log pcsc "SCardConnect(NEW6210 Reader Card,hCard:0x1234 status:[0x0]) called"
}

# ReaderSelect against a winscard.dll without SCardTransmit: the tests' stand-in, in a folder of
# its own beside the library and a host that does not import winscard.dll, so that the
# library's LoadLibraryA finds it first. "winscard=n" lets it win over Wine's builtin. The five
# functions before SCardTransmit stay hooked, and the notice box is answered by the host; the
# checks of the calls are in NoTransmitHost.cpp.
scenario_notransmit() {
  local record="$work/notransmit.rec" folder="$work/notransmit"
  mkdir -p "$folder/config"
  cp "$dll" "$folder/Varnik.dll"
  cp "$notransmit_host" "$folder/wine_notransmit_host.exe"
  cp "$fake_winscard" "$folder/winscard.dll"
  cp "$app/config/debug.json" "$folder/config/debug.json"
  start_simulator "$record"
  WINEDLLOVERRIDES="$WINEDLLOVERRIDES;winscard=n" run_in_folder "$folder" notransmit \
    wine_notransmit_host.exe "Z:${folder//\//\\}\\Varnik.dll" "$port" notransmit
  stop_line_end
  cat "$folder"/Log/Varnik/*.log >"$work/notransmit.log" 2>/dev/null || true
  grep -qxF "PASS notransmit" <(tr -d '\r' <"$work/notransmit.out") ||
    fail "notransmit: the host did not pass"
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes notransmit "$bytes" "02 38 02 03 3A" 1
  expect_bytes notransmit "$bytes" "02 38 03 03 3B" 1
  expect_log notransmit "Not Found SCardTransmit"
  expect_log notransmit "SCardConnect(NEW6210 Reader Card,hCard:0x1234 status:[0x0]) called"
  if grep -qF "Redirection WinCard completed" <(log_text notransmit); then
    fail "notransmit: the log says the redirection completed"
  fi
}

# A swipe: the swipe frame goes out once, the simulator's stripe (its default, given here so
# that the host can work out the track text) comes back and reaches the caller as tracks.
scenario_swipe() {
  local record="$work/swipe.rec" stripe="4111111111111111=2512101|4111111111111111=2512|"
  start_simulator "$record" --stripe "$stripe"
  run_host swipe "stripe=$stripe" swipe
  stop_line_end
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes swipe "$bytes" "02 33 52 53 77 69 70 65 20 43 61 72 64 20 3A 00 03 37" 1
  expect_bytes swipe "$bytes" "18" 0
  expect_log swipe ">02:33:52:53:77:69:70:65:20:43:61:72:64:20:3A:00:03:37"
  expect_received swipe "02:$(text_hex "$stripe"):03"
  expect_log swipe "Close Device was Successful"
}

# Nobody swipes: a cancel from a window message during the wait puts exactly one CAN on the
# line, and the simulator's CAN ends the read.
scenario_swipecancel() {
  local record="$work/swipecancel.rec"
  start_simulator "$record" --swipe-wait
  run_host swipecancel swipecancel
  stop_line_end
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes swipecancel "$bytes" "02 33 52 53 77 69 70 65 20 43 61 72 64 20 3A 00 03 37" 1
  expect_bytes swipecancel "$bytes" "18" 1
  expect_log swipecancel "Pos Cancel "
  expect_log swipecancel ">18"
  expect_log swipecancel "<18"
  expect_log swipecancel "Close Device was Successful"
}

# The Thai ID card read by the terminal, in text form (mode 0, TIS-620 turned into UTF-8) and as
# the binary block (mode 2: the record and the simulator's 5118-byte photo behind a length).
scenario_thaiid() {
  local record="$work/thaiid.rec" prompt="49 6E 73 65 72 74 20 43 61 72 64 20 3A 00"
  start_simulator "$record"
  run_host thaiid photo=5118 thaiid
  stop_line_end
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes thaiid "$bytes" "02 32 00 00 $prompt 03 0B" 1
  expect_bytes thaiid "$bytes" "02 32 00 02 $prompt 03 09" 1
  expect_bytes thaiid "$bytes" "18" 0
  expect_log thaiid ">02:32:00:00:${prompt// /:}:03:0B"
  expect_log thaiid ">02:32:00:02:${prompt// /:}:03:09"
  expect_received thaiid "02:$(text_hex "1234567890121|")"
  expect_log thaiid "Close Device was Successful"
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
    log_text "$scenario" | sed 's/^/  | /'
  fi
done

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all Wine scenarios passed"
