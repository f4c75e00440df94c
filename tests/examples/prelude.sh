# What the example host's end-to-end tests share; each sources it first with
# NAME SIGNIN EMULATOR. It sets `signin`, `emulator` and `work` (a directory
# that goes away on exit with the emulator) and gives:
#   start_emulator FLAGS...  the emulator on free ports (http_port, https_port),
#                            its CA in $work/ca.pem, its log in $work/emulator.log
#   fail DESCRIPTION         counts a failure; check DESCRIPTION CMD... runs CMD:
#                            "ok" when it succeeds, else a failure
#   run STATUS DESCRIPTION SECRET ARGS...  signin ARGS --verbose, output in
#                            $work/out and err, $work/jar removed first: "ok" when
#                            it exits STATUS and SECRET stays out of its log
#   finish                   prints the count; succeeds when it is 0
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
