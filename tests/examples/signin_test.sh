#!/usr/bin/env bash
# The example host against the emulator: reading passwords, writing the jar, time-outs, exit statuses.
source "$(dirname "$0")/prelude.sh" signin-test "$@"

start_emulator --fba-site /sites/fba --fba-account alice:Wonderland-42 --never-answer /sites/silent
site="https://localhost:$https_port/sites/fba"
printf 'Wonderland-42\n' >"$work/password"
fba=(fba --site "$site" --user alice)
secret=Wonderland-42

check "--help documents the options and exits 0" \
  bash -c '"$0" --help | grep -q -- "--password-stdin" && "$0" --help | grep -q -- "--cookie-jar"' "$signin"
run 2 "a missing --site is a usage error" $secret fba --user alice
run 0 "signs in with --password-file and writes the jar" $secret "${fba[@]}" --password-file "$work/password" \
  --ca-file "$work/ca.pem" --cookie-jar "$work/jar"
check "the jar is private to the user" test "$(stat -c %a "$work/jar")" = 600
check "the jar holds the FedAuth line curl writes for an HttpOnly, secure cookie" \
  grep -qP '^#HttpOnly_localhost\tFALSE\t/\tTRUE\t0\tFedAuth\talice\.[0-9a-f]{32}$' "$work/jar"
run 0 "--password-stdin without --cookie-jar writes the jar to standard output" $secret \
  fba --site "$site" --user ALICE --password-stdin --ca-file "$work/ca.pem" <<<$'Wonderland-42\r'
check "the jar on standard output holds FedAuth" grep -q $'\tFedAuth\talice\\.' "$work/out"
run 17 "a wrong password exits 17" $secret \
  "${fba[@]}" --password-stdin --ca-file "$work/ca.pem" <<<nope
check "... with the result text and the detail" grep -qz 'Authentication failed (7).*FedAuth cookie not found\.' "$work/err"
run 15 "an untrusted certificate exits 15 (request not sent)" $secret "${fba[@]}" --password-file "$work/password"
run 0 "--insecure accepts it" $secret "${fba[@]}" --password-file "$work/password" --insecure
run 13 "an ftp:// site exits 13 (invalid input)" $secret fba --site ftp://localhost/sites/fba --user alice \
  --password-file "$work/password"
run 1 "a missing password file exits 1" $secret "${fba[@]}" --password-file "$work/none"
check "without a terminal and no password option it exits 1 instead of waiting" \
  bash -c 'setsid -w "$0" fba --site "$1" --user alice </dev/null >/dev/null 2>&1; [ $? = 1 ]' "$signin" "$site"
run 2 "--timeout takes whole seconds only" $secret "${fba[@]}" --password-file "$work/password" --timeout 1.5
# Bounded by `timeout` too: without a working --timeout the server would hold it forever.
timeout 120 "$signin" fba --site "https://localhost:$https_port/sites/silent" --user alice \
  --password-file "$work/password" --ca-file "$work/ca.pem" --connect-timeout 1 --timeout 2 >"$work/out" 2>"$work/err"
check "--timeout ends a server that never answers with exit 15 (request not sent)" test $? = 15
check "... and the detail names the time-out" grep -q 'detail: Request time-out of 2 s reached' "$work/err"

finish
