#!/usr/bin/env bash
# Runs Varnik.dll under Wine against the terminal simulator: a fresh Wine prefix, the simulator
# on a pseudo-terminal linked in as COM7, wine_host.exe running one scenario per simulator run,
# then checks of what the simulator received and of the library's own log.
#
#   run-wine-tests.sh --dll Varnik.dll --host wine_host.exe --sim new6210-sim
#                     [--wine wine64] [--keep] [scenario ...]
#
# With no scenario names, all of them run. --keep leaves the work folder for a look afterwards.
set -euo pipefail

dll="" host="" sim="" wine="" keep=0
scenarios=()
while [ $# -gt 0 ]; do
  case "$1" in
    --dll) dll="$2"; shift 2 ;;
    --host) host="$2"; shift 2 ;;
    --sim) sim="$2"; shift 2 ;;
    --wine) wine="$2"; shift 2 ;;
    --keep) keep=1; shift ;;
    -*) echo "unknown option: $1" >&2; exit 2 ;;
    *) scenarios+=("$1"); shift ;;
  esac
done
[ ${#scenarios[@]} -gt 0 ] || scenarios=(version cancel)

for file in "$dll" "$host" "$sim"; do
  if [ -z "$file" ] || [ ! -f "$file" ]; then
    echo "missing: '$file' (need --dll, --host and --sim)" >&2
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
sim_pid=""

cleanup() {
  if [ -n "$sim_pid" ]; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
  fi
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
"$wine" reg.exe add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >>"$work/wineboot.log" 2>&1
"$wineserver" -w

# The library's folder: the DLL, the host and a config folder whose debug.json turns the log on.
app="$work/app"
mkdir -p "$app/config"
cp "$dll" "$app/Varnik.dll"
cp "$host" "$app/wine_host.exe"
printf '{"mode":1}' >"$app/config/debug.json"
# The same folder as Windows sees it, through drive Z: (the Unix root).
app_windows="Z:${app//\//\\}"

# Starts the simulator on a fresh pseudo-terminal linked as COM$port; extra options follow.
start_simulator() {
  local record="$1"
  shift
  rm -f "$WINEPREFIX/dosdevices/com$port"
  coproc SIMULATOR { exec "$sim" --link "$WINEPREFIX/dosdevices/com$port" --record "$record" \
                       --quiet "$@"; }
  sim_pid=$SIMULATOR_PID
  local pty=""
  # Its first line names the pseudo-terminal: from then on it listens.
  if ! read -r -t 20 pty <&"${SIMULATOR[0]}"; then
    echo "the simulator did not start" >&2
    exit 1
  fi
  echo "simulator on $pty"
}

stop_simulator() {
  if [ -n "$sim_pid" ]; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
    sim_pid=""
  fi
}

# What the host sent, as upper-case hexadecimal pairs separated by blanks.
recorded_bytes() {
  od -An -v -tx1 "$1" | tr -s ' \n' ' ' | sed 's/^ //; s/ $//' | tr 'a-f' 'A-F'
}

count_of() {
  local haystack=" $1 " needle=" $2 "
  local rest=${haystack//"$needle"/}
  echo $(((${#haystack} - ${#rest}) / ${#needle}))
}

expect_bytes() {
  local name="$1" bytes="$2" sequence="$3" wanted="$4"
  local found
  found=$(count_of "$bytes" "$sequence")
  if [ "$wanted" = "some" ]; then
    [ "$found" -gt 0 ] || fail "$name: the simulator never received $sequence"
  elif [ "$found" -ne "$wanted" ]; then
    fail "$name: the simulator received $sequence $found time(s), expected $wanted"
  fi
}

# The library's log of one scenario's run, with CR LF turned into LF.
log_text() {
  tr -d '\r' <"$work/$1.log"
}

expect_log() {
  local name="$1" line="$2"
  # Each log line is "<stamp>\t<text>"; look for the whole text after the tab.
  grep -qxF -- "$line" <(log_text "$name" | cut -f2-) ||
    fail "$name: no log line \"$line\""
}

# Runs wine_host.exe with the given arguments under a time limit; its output goes to the
# terminal and to $work/<name>.out.
run_host() {
  local name="$1"
  shift
  local status=0
  rm -f "$app"/Log/Varnik/*.log
  (cd "$app" && timeout 120 "$wine" "$app/wine_host.exe" "$app_windows\\Varnik.dll" "$port" "$@") \
    >"$work/$name.out" 2>&1 || status=$?
  sed 's/^/  | /' "$work/$name.out"
  cat "$app"/Log/Varnik/*.log >"$work/$name.log" 2>/dev/null || true
  if [ "$status" -eq 124 ]; then
    fail "$name: wine_host.exe did not finish within 120 s"
  elif [ "$status" -ne 0 ]; then
    fail "$name: wine_host.exe exited with $status"
  fi
}

# --- scenarios ---------------------------------------------------------------------------

# Probe and version read: the probe frame goes out and is acknowledged, the version frame gets
# the simulator's version text back.
scenario_version() {
  local record="$work/version.rec"
  start_simulator "$record"
  run_host version version
  stop_simulator
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
  expect_log version "Close Device was Successful"
}

# Cancel from a window message that the library's own wait dispatches: the simulator holds the
# version reply until it sees CAN, gets exactly one, and answers with CAN.
scenario_cancel() {
  local record="$work/cancel.rec"
  start_simulator "$record" --hold 3B
  run_host cancel cancel
  stop_simulator
  local bytes
  bytes=$(recorded_bytes "$record")
  expect_bytes cancel "$bytes" "02 3B 03 3B" 1
  expect_bytes cancel "$bytes" "18" 1
  expect_log cancel "Pos Cancel "
  expect_log cancel ">18"
  expect_log cancel "<18"
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
    echo "log of the library in this scenario:"
    log_text "$scenario" | sed 's/^/  | /'
  fi
done

if [ "$failures" -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all Wine scenarios passed"
