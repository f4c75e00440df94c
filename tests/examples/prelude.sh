# What the example host's end-to-end tests share. Each sources it first:
#
#   source "$(dirname "$0")/prelude.sh" NAME SIGNIN EMULATOR
#
# It sets `signin`, `emulator` and `work`, a fresh directory ("NAME.XXXXXX"
# under TMPDIR) that goes away on exit together with the emulator, and gives
#   start_emulator FLAGS...   the emulator on free ports, its CA in
#                             $work/ca.pem, its log in $work/emulator.log;
#                             sets http_port and https_port, or exits 1
#   fail DESCRIPTION          reports and counts a failure
#   check DESCRIPTION CMD...  runs CMD: "ok" when it succeeds, else a failure
#   finish                    prints the count; succeeds when it is 0
set -uo pipefail
signin=$2
emulator=$3

work=$(mktemp -d "${TMPDIR:-/tmp}/$1.XXXXXX")
emulator_pid=""
cleanup() {
  [ -n "$emulator_pid" ] && kill "$emulator_pid" 2>/dev/null && wait "$emulator_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

start_emulator() {
  "$emulator" "$@" --ca-out "$work/ca.pem" --ready-file "$work/ready" >"$work/emulator.log" 2>&1 &
  emulator_pid=$!
  for _ in $(seq 200); do [ -s "$work/ready" ] && break; sleep 0.05; done
  read -r http_port https_port <"$work/ready" || { echo "emulator did not start"; exit 1; }
}

failures=0
fail() { echo "FAIL - $*"; failures=$((failures + 1)); }
check() {
  local what=$1; shift
  if "$@"; then echo "ok   - $what"; else fail "$what"; fi
}
finish() {
  echo "$failures failure(s)"
  [ "$failures" = 0 ]
}
