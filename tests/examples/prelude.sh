# Shared by the example host's end-to-end tests; each sources it with NAME SIGNIN
# EMULATOR. start_emulator FLAGS... runs the emulator (ports in http_port,
# https_port; CA in $work/ca.pem; log in $work/emulator.log). check WHAT CMD...
# and run STATUS WHAT SECRET ARGS... (signin --verbose: the exit status, and the
# secret kept out of its log) print "ok" or count a failure; finish reports.
set -uo pipefail
signin=$2
emulator=$3
work=$(mktemp -d "${TMPDIR:-/tmp}/$1.XXXXXX")
emulator_pid=""
trap '[ -n "$emulator_pid" ] && kill "$emulator_pid" 2>/dev/null && wait "$emulator_pid"; rm -rf "$work"' EXIT

start_emulator() {
  "$emulator" "$@" --ca-out "$work/ca.pem" --ready-file "$work/ready" >"$work/emulator.log" 2>&1 &
  emulator_pid=$!
  for _ in $(seq 200); do [ -s "$work/ready" ] && break; sleep 0.05; done
  read -r http_port https_port <"$work/ready" || { echo "emulator did not start"; exit 1; }
}

failures=0
fail() { echo "FAIL - $*"; failures=$((failures + 1)); }
check() { local what=$1; shift; if "$@"; then echo "ok   - $what"; else fail "$what"; fi; }
run() {
  local want=$1 what=$2 secret=$3; shift 3
  rm -f "$work/jar"
  "$signin" "$@" --verbose >"$work/out" 2>"$work/err"
  local got=$?
  [ "$got" = "$want" ] && ! grep -qF -- "$secret" "$work/err" && { echo "ok   - $what"; return; }
  fail "$what (exit $got, wanted $want, or the password in the log)"; grep -v '^\[debug\]' "$work/err" | tail -5
}
finish() { echo "$failures failure(s)"; [ "$failures" = 0 ]; }
