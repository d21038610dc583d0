#!/usr/bin/env bash
# Runs the velora client against a local sandbox platform.
#
#   tools/demo.sh BIN_DIR      (BIN_DIR holds velora and velora-sandbox, e.g. build/bin)
#
# The client's state goes to a temporary folder, so the demo neither reads nor changes yours.
# Exits non-zero when any step fails; the sandbox is stopped however the script ends.

set -u

if [[ $# -ne 1 ]]; then
  echo "usage: $0 BIN_DIR" >&2
  exit 2
fi
bin_dir=$1
for program in velora velora-sandbox; do
  if [[ ! -x "$bin_dir/$program" ]]; then
    echo "demo: $bin_dir/$program is missing or not executable" >&2
    exit 2
  fi
done

state=$(mktemp -d "${TMPDIR:-/tmp}/velora-demo.XXXXXX")
sandbox_pid=""
cleanup() {
  if [[ -n "$sandbox_pid" ]]; then
    kill -TERM "$sandbox_pid" 2>/dev/null
    wait "$sandbox_pid" 2>/dev/null
  fi
  rm -rf "$state"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

export XDG_CONFIG_HOME="$state/config" XDG_DATA_HOME="$state/data"
# Settings from the caller's environment would change what the demo shows.
unset VELORA_ENDPOINT VELORA_TIMEOUT VELORA_VERBOSE VELORA_JSON VELORA_PASSWORD \
  VELORA_DISCOVER_URL VELORA_CLIENT_ID VELORA_GUEST_CLIENT_ID VELORA_GUEST_SECRET VELORA_REDIRECT_URI

# The sandbox announces its address on its first line of output.
mkfifo "$state/sandbox.out"
"$bin_dir/velora-sandbox" --port 0 >"$state/sandbox.out" &
sandbox_pid=$!
exec 3<"$state/sandbox.out"
if ! read -r -t 10 banner <&3; then
  echo "demo: the sandbox exited or did not announce its address within 10 s" >&2
  exit 1
fi
url=${banner##* }
if [[ "$banner" != "velora-sandbox listening on http://"* ]]; then
  echo "demo: unexpected sandbox output: $banner" >&2
  exit 1
fi
# Keep draining the sandbox's output so that it never blocks on a full pipe.
cat <&3 >/dev/null &
exec 3<&-
echo "sandbox at $url"

failed=0
step() {
  echo
  echo "== velora ${*:2}"
  "$@"
  local status=$?
  if [[ $status -ne 0 ]]; then
    echo "-- failed with exit code $status"
    failed=1
  fi
}

# The first "key":"text" member of the JSON on standard input.
json_text() { grep -o "\"$1\":\"[^\"]*\"" | head -1 | cut -d'"' -f4; }
# A step whose JSON output the demo reads on: shown like any step (on standard error, since it
# runs in a command substitution) and passed on to the next command.
run_showing() {
  echo >&2
  echo "== velora ${*:2}" >&2
  # Shown through the inherited standard error: reopening it (tee /dev/stderr) would truncate a
  # log file that it goes to.
  local out
  out=$("$@")
  printf '%s\n' "$out" >&2
  printf '%s\n' "$out"
}
# Fails the demo when a step that the next ones build on gave no value.
need() {
  if [[ -z "$2" ]]; then
    echo "-- no $1: the steps that need it fail too"
    failed=1
  fi
}

velora="$bin_dir/velora"
step "$velora" --version
step "$velora" --endpoint "$url" check
# The platform's other routes want a session: the guest login gives one, and each later run
# resumes it from the client's state instead of logging in again.
step "$velora" login guest
step "$velora" status
step "$velora" device-config
step "$velora" device-config --tagid demo-tag-01 --json
step "$velora" items list
# Any operation of the library runs by name, its arguments as name=value (JSON where it parses).
step "$velora" call getControllableItems 'filter={"types":["DOOR"],"radius":0,"hasPosition":false,"widgetNames":[]}'
# Follow the meeting-room light's stream while switching the light: each change set through the
# REST call arrives on the stream as a value_change line.
echo
echo "== velora watch items --item 1 --count 3   (in the background, output below)"
"$velora" watch items --item 1 --count 3 --seconds 20 >"$state/watch.out" 2>&1 &
watch_pid=$!
for _ in $(seq 100); do
  grep -q "^complete" "$state/watch.out" 2>/dev/null && break
  sleep 0.1
done
step "$velora" items set 1 power on
step "$velora" items set 1 brightness 70
if ! wait "$watch_pid"; then
  echo "-- watch failed"
  failed=1
fi
sed 's/^/   | /' "$state/watch.out"
step "$velora" watch home velora-demo-tag --count 3
step "$velora" watch positions --tag velora-demo-tag --count 3
step "$velora" watch diagnostic --tag velora-demo-tag --tag badge-7-lost --forget-ms 500 --count 3
# A login code (the text of a QR code) stands for a user's credentials, which the client stores
# and logs in with; a later run resumes that session.
step "$velora" login qr DEMO-QR-1
step "$velora" status
# A desk for tomorrow: search, book the first free one, see it in the agenda and on the home
# screen; then the nearest locker of size M is booked, opened and given back, and the desk
# booking cancelled.
step "$velora" book search --date tomorrow --type DESK
desk=$("$velora" book search --date tomorrow --type DESK --json | json_text id)
need "free desk" "$desk"
booking=$(run_showing "$velora" book DESK "$desk" --date tomorrow --json | json_text bookingId)
need "booking id" "$booking"
step "$velora" agenda --from tomorrow --to tomorrow
step "$velora" home
locker=$(run_showing "$velora" locker nearest M --json | json_text id)
need "locker booking" "$locker"
step "$velora" locker unlock "$locker"
step "$velora" locker release "$locker"
step "$velora" book cancel "$booking"
# The map in a window (on a virtual display when there is none) following the demo tag from the
# position stream; a picture of it is kept.
map_png="$(cd "$bin_dir/.." && pwd)/demo-map.png"
windowed() { if [[ -z "${DISPLAY:-}" ]] && command -v xvfb-run >/dev/null; then xvfb-run -a "$@"; else "$@"; fi; }
echo
echo "== velora map --tag velora-demo-tag --seconds 3 --screenshot $map_png"
if windowed "$velora" map --tag velora-demo-tag --seconds 3 --screenshot "$map_png"; then
  echo "map screenshot: $map_png"
else
  echo "-- failed with exit code $?"
  failed=1
fi
# The machine as a positioning tag for a few seconds, in the low duty cycle: on its BlueZ adapter
# when it has one, else on a simulated peripheral (it says which).
step "$velora" advertise --frequency low --seconds 3
step "$velora" advertise --tagid enlighted-1 --simulate --seconds 1
# This device's notifications: register it, list them, read the newest; then no disturbing
# tomorrow afternoon.
step "$velora" notifications register
# A flickering lamp: a ticket with a photo and a voice note, seen among the user's tickets, then
# withdrawn; filing it left a notification on this device.
demo_files="$(cd "$(dirname "$0")/../sandbox/data" && pwd)"
step "$velora" tickets managers
step "$velora" tickets form category=electrical
ticket=$(run_showing "$velora" tickets new --photo "$demo_files/demo-photo.jpg" --voice "$demo_files/demo-voice.aac" \
  description="Desk lamp flickers" category=electrical circuit=B2 --json | json_text ticketId)
need "ticket" "$ticket"
step "$velora" tickets mine
step "$velora" tickets show "$ticket"
step "$velora" tickets delete "$ticket"
step "$velora" notifications list --status SENT --status READ
newest=$("$velora" notifications list --status SENT --json | json_text id)
need "notification" "$newest"
step "$velora" notifications read "$newest"
step "$velora" dnd set --resource demo "dnd-day=$(date -d tomorrow +%F)" 'dnd-time={"start":"13:00","end":"17:00"}'
step "$velora" dnd show
step "$velora" logout
step "$velora" status
step "$velora" log show
step "$velora" log clear

echo
if [[ $failed -ne 0 ]]; then
  echo "demo: some steps failed"
  exit 1
fi
echo "demo: all steps succeeded"
