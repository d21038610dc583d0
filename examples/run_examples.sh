#!/usr/bin/env bash
# Builds the examples against an installed VeloraSDK, starts a sandbox and runs every example
# against it, checking each one's exit status and the line with which it reports its result.
#
#   examples/run_examples.sh PREFIX SANDBOX_DIR SCRATCH
#
# PREFIX: where the library is installed; SANDBOX_DIR: the folder holding velora-sandbox;
# SCRATCH: a folder the script empties, then fills with the build, the examples' state and logs.
# The map example runs when it was built (the library has the web view) and xvfb-run is present.
# Exits non-zero when any example fails; the sandbox is stopped however the script ends.

set -euo pipefail

if [[ $# -ne 3 ]]; then
  echo "usage: $0 PREFIX SANDBOX_DIR SCRATCH" >&2
  exit 2
fi
prefix=$1
sandbox=$2/velora-sandbox
scratch=$3
here=$(cd "$(dirname "$0")" && pwd)

rm -rf "$scratch"
mkdir -p "$scratch/logs"
logs=$scratch/logs
# The examples' state, and anything the web engine keeps, stays in the scratch folder, and nothing
# from the caller's environment steers them.
unset VELORA_URL VELORA_USER VELORA_PASSWORD VELORA_VERBOSE
export VELORA_STATE_DIR="$scratch/state" XDG_CONFIG_HOME="$scratch/xdg/config" XDG_DATA_HOME="$scratch/xdg/data" \
  XDG_CACHE_HOME="$scratch/xdg/cache"

# The guide's first program is examples/first_request.cpp below its two comment lines; the two
# must not drift apart.
if ! diff <(sed -n '/^## 4\. The first request/,/^```$/p' "$here/../docs/getting-started.md" | sed '1,3d;$d') \
  <(sed '1,3d' "$here/first_request.cpp") >"$logs/guide.diff"; then
  cat "$logs/guide.diff"
  echo "examples: first_request.cpp differs from the program in docs/getting-started.md" >&2
  exit 1
fi

build=$scratch/build
# Warnings are errors: the installed headers must build cleanly in an application's code too.
if ! cmake -S "$here" -B "$build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_RPATH="$prefix/lib" \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" >"$logs/configure.log" 2>&1 ||
  ! cmake --build "$build" -j2 >"$logs/build.log" 2>&1; then
  cat "$logs/configure.log" "$logs/build.log" 2>/dev/null
  echo "examples: the build failed" >&2
  exit 1
fi
echo "examples built in ${SECONDS} s"

sandbox_pid=""
stop_sandbox() {
  if [[ -n "$sandbox_pid" ]]; then
    kill -TERM "$sandbox_pid" 2>/dev/null || true
    wait "$sandbox_pid" 2>/dev/null || true
  fi
}
trap stop_sandbox EXIT
trap 'exit 130' INT TERM

# The sandbox announces its address on its first line of output.
mkfifo "$scratch/sandbox.out"
"$sandbox" --port 0 --auto-login demo >"$scratch/sandbox.out" 2>"$logs/sandbox.err" &
sandbox_pid=$!
exec 3<"$scratch/sandbox.out"
if ! read -r -t 10 banner <&3 || [[ "$banner" != "velora-sandbox listening on http://"* ]]; then
  echo "examples: the sandbox did not announce its address: ${banner:-nothing}" >&2
  exit 1
fi
url=${banner##* }
# Keep draining its output so that it never blocks on a full pipe; this ends with the sandbox.
cat <&3 >/dev/null &
exec 3<&-
echo "sandbox at $url"

failures=0
step=0
# expect STATUS TEXT SECONDS PROGRAM [ARGS...]: runs the example for at most SECONDS and checks
# that it exits with STATUS and that its output holds TEXT.
expect() {
  local want=$1 text=$2 limit=$3 status=0
  shift 3
  step=$((step + 1))
  local log="$logs/$step-$(basename "$1").log"
  timeout "$limit" "$@" >"$log" 2>&1 || status=$?
  echo "== ${*#"$build/"}  (exit $status)"
  sed 's/^/   | /' "$log"
  if [[ $status -ne $want ]]; then
    echo "-- expected exit status $want"
    failures=$((failures + 1))
  elif ! grep -qF -- "$text" "$log"; then
    echo "-- expected output holding: $text"
    failures=$((failures + 1))
  fi
}

# The guide's program reads the base URL from VELORA_URL only.
VELORA_URL=$url expect 0 "first request ok: profile profile-service-account-velora-guest" 30 "$build/first_request"
# Logins: nothing to resume yet; each mode, and later runs resuming what the last one stored. The
# resuming runs find the platform through VELORA_URL, the others through their first argument.
VELORA_URL=$url expect 1 "no stored session" 30 "$build/login" --resume
expect 0 "login ok: new GUEST session, profile profile-service-account-velora-guest" 30 "$build/login" "$url" guest
VELORA_URL=$url expect 0 "login ok: resumed the GUEST session, profile profile-service-account-velora-guest" 30 "$build/login" --resume
expect 0 "login ok: new BACKGROUND session, profile profile-demo" 30 "$build/login" "$url" password
expect 0 "the login code stands for user alice" 30 "$build/login" "$url" qr DEMO-QR-ALICE
VELORA_URL=$url expect 0 "login ok: resumed the BACKGROUND session, profile profile-alice" 30 "$build/login" --resume
expect 1 "login failed: " 30 "$build/login" "$url" qr NO-SUCH-CODE

expect 0 "equipment ok: the stream reported value 101 = on" 30 "$build/equipment" "$url"
expect 0 "booking ok: booked, listed and cancelled Desk" 30 "$build/booking" "$url"
expect 0 "ticket ok: t-4 filed, its 646-byte photo reads back unchanged" 30 "$build/ticket" "$url"
# The demo user's inbox holds two unread generic notifications.
expect 0 "notifications ok: marked 2 read" 30 "$build/notifications" "$url"
expect 0 "notifications ok: nothing unread" 30 "$build/notifications" "$url"
if [[ ! -x "$build/map" ]]; then
  echo "== map: skipped, the installed library has no web view"
elif ! command -v xvfb-run >/dev/null; then
  echo "== map: skipped, xvfb-run is not installed"
else
  expect 0 "map ok: followed velora-demo-tag" 90 xvfb-run -a -s "-screen 0 1280x1024x24" "$build/map" "$url"
fi
expect 0 "advertise ok: advertised for 2 s" 30 "$build/advertise" "$url" --simulate --seconds 2

echo
if [[ $failures -ne 0 ]]; then
  echo "examples: $failures of $step runs failed (logs in $logs)"
  exit 1
fi
echo "examples: all $step runs passed in ${SECONDS} s"
