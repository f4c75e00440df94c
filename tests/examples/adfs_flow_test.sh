#!/usr/bin/env bash
# The example host's adfs flow end to end against the standalone emulator: an
# ADFS server and a site that trusts it, on the emulator's HTTPS port.
#
#   adfs_flow_test.sh SIGNIN EMULATOR
source "$(dirname "$0")/prelude.sh" adfs-flow-test "$@"

start_emulator --adfs-server /adfs-farm --adfs-account 'bob@contoso.test:S3cret&<x>' \
  --trust-site /sites/adfs --trust-realm urn:sharepoint:contoso
printf 'S3cret&<x>\n' >"$work/password"

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
    fail "$3 (exit $got, or the password in the log)"; grep -v '^\[debug\]' "$work/err"
  fi
}

expect 0 urn:sharepoint:contoso "signs in with a password that XML would escape"
grep -qP '^#HttpOnly_localhost\tFALSE\t/\tTRUE\t0\tFedAuth\tbob@contoso\.test\.[0-9a-f]{32}$' \
  "$work/jar" || fail "the jar lacks the site's FedAuth cookie"
expect 17 urn:other "a token for another realm is refused by the site"
[ ! -e "$work/jar" ] || fail "a refused sign-in wrote a jar"

finish
