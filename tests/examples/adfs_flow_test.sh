#!/usr/bin/env bash
# The example host's adfs flow end to end against the standalone emulator: an
# ADFS server and a site that trusts it, on the emulator's HTTPS port.
#
#   adfs_flow_test.sh SIGNIN EMULATOR
set -uo pipefail
signin=$1
emulator=$2

work=$(mktemp -d "${TMPDIR:-/tmp}/adfs-flow-test.XXXXXX")
emulator_pid=""
cleanup() {
  [ -n "$emulator_pid" ] && kill "$emulator_pid" 2>/dev/null && wait "$emulator_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

"$emulator" --adfs-server /adfs-farm --adfs-account 'bob@contoso.test:S3cret&<x>' \
  --trust-site /sites/adfs --trust-realm urn:sharepoint:contoso \
  --ca-out "$work/ca.pem" --ready-file "$work/ready" >"$work/emulator.log" 2>&1 &
emulator_pid=$!
for _ in $(seq 200); do [ -s "$work/ready" ] && break; sleep 0.05; done
read -r _ https_port <"$work/ready" || { echo "emulator did not start"; exit 1; }
printf 'S3cret&<x>\n' >"$work/password"

failures=0
# expect STATUS REALM DESCRIPTION: one sign-in as bob, verbose, jar in $work/jar.
expect() {
  rm -f "$work/jar"
  "$signin" adfs --adfs "https://localhost:$https_port/adfs-farm" --realm "$2" \
    --site "https://localhost:$https_port/sites/adfs" --user bob@contoso.test \
    --password-file "$work/password" --ca-file "$work/ca.pem" --cookie-jar "$work/jar" \
    --verbose >/dev/null 2>"$work/err"
  local got=$?
  if [ "$got" = "$1" ] && ! grep -q 'S3cret' "$work/err"; then
    echo "ok   - $3"
  else
    echo "FAIL - $3 (exit $got, or the password in the log)"; grep -v '^\[debug\]' "$work/err"
    failures=$((failures + 1))
  fi
}

expect 0 urn:sharepoint:contoso "signs in with a password that XML would escape"
grep -qP '^#HttpOnly_localhost\tFALSE\t/\tTRUE\t0\tFedAuth\tbob@contoso\.test\.[0-9a-f]{32}$' \
  "$work/jar" || { echo "FAIL - the jar lacks the site's FedAuth cookie"; failures=$((failures + 1)); }
expect 17 urn:other "a token for another realm is refused by the site"
[ ! -e "$work/jar" ] || { echo "FAIL - a refused sign-in wrote a jar"; failures=$((failures + 1)); }

echo "$failures failure(s)"
[ "$failures" = 0 ]
