#!/usr/bin/env bash
# The example host end to end against the standalone emulator: how it reads
# passwords, what it writes, and the exit status of each kind of failure.
#
#   signin_test.sh SIGNIN EMULATOR
source "$(dirname "$0")/prelude.sh" signin-test "$@"

start_emulator --fba-site /sites/fba --fba-account alice:Wonderland-42
site="https://localhost:$https_port/sites/fba"
ca="$work/ca.pem"
printf 'Wonderland-42\n' >"$work/password"

# run EXPECTED_STATUS ARGS...: runs signin with the password on stdin unless
# the arguments say otherwise; keeps stdout and stderr in out/err.
run() {
  local want=$1; shift
  "$signin" "$@" >"$work/out" 2>"$work/err"
  local got=$?
  [ "$got" = "$want" ] || { echo "     signin $* -> exit $got, wanted $want"; sed 's/^/     | /' "$work/err"; return 1; }
}

check "--help documents the options and exits 0" \
  bash -c '"$0" --help | grep -q -- "--password-stdin" && "$0" --help | grep -q -- "--cookie-jar"' "$signin"
check "a missing --site is a usage error" run 2 fba --user alice
check "an unknown option is a usage error" run 2 fba --site "$site" --user alice --bogus

check "signs in with --password-file and writes the jar" \
  run 0 fba --site "$site" --user alice --password-file "$work/password" --ca-file "$ca" \
  --cookie-jar "$work/jar"
check "the jar is private to the user" test "$(stat -c %a "$work/jar")" = 600
check "the jar holds the FedAuth line curl writes for an HttpOnly, secure cookie" \
  grep -qP '^#HttpOnly_localhost\tFALSE\t/\tTRUE\t0\tFedAuth\talice\.[0-9a-f]{32}$' "$work/jar"
check "curl -b with the jar gets the protected page" \
  test "$(curl -sS --cacert "$ca" -b "$work/jar" -o /dev/null -w '%{http_code}' "$site/_api/web")" = 200
check "curl without it gets 401" \
  test "$(curl -sS --cacert "$ca" -o /dev/null -w '%{http_code}' "$site/_api/web")" = 401

check "--password-stdin without --cookie-jar writes the jar to standard output" \
  bash -c 'printf "Wonderland-42\r\n" | "$0" fba --site "$1" --user ALICE --password-stdin --ca-file "$2" >"$3/out" 2>/dev/null && grep -q "	FedAuth	alice\." "$3/out"' \
  "$signin" "$site" "$ca" "$work"

check "a wrong password exits 17 with the result text and the detail" \
  bash -c 'echo nope | "$0" fba --site "$1" --user alice --password-stdin --ca-file "$2" 2>"$3/err"; s=$?;
           [ $s = 17 ] && grep -q "Authentication failed (7)" "$3/err" && grep -q "FedAuth cookie not found." "$3/err"' \
  "$signin" "$site" "$ca" "$work"
check "an untrusted certificate exits 15 (request not sent)" \
  run 15 fba --site "$site" --user alice --password-file "$work/password"
check "--insecure accepts it" \
  run 0 fba --site "$site" --user alice --password-file "$work/password" --insecure
check "an ftp:// site exits 13 (invalid input)" \
  run 13 fba --site "ftp://localhost/sites/fba" --user alice --password-file "$work/password"
check "a missing password file exits 1" \
  run 1 fba --site "$site" --user alice --password-file "$work/none"
check "without a terminal and no password option it exits 1 instead of waiting" \
  bash -c 'setsid -w "$0" fba --site "$1" --user alice </dev/null >/dev/null 2>&1; [ $? = 1 ]' "$signin" "$site"

check "--verbose logs the library's steps to stderr but never the password" \
  bash -c '"$0" fba --site "$1" --user alice --password-file "$2/password" --ca-file "$3" --verbose >/dev/null 2>"$2/verbose" &&
           grep -q "^\[info\] SharePointFba::Authenticate - Site: .*Pwd avail: Y$" "$2/verbose" &&
           grep -q "^\[debug\] " "$2/verbose" && ! grep -q "Wonderland-42" "$2/verbose"' \
  "$signin" "$site" "$work" "$ca"

finish
