#!/usr/bin/env bash
# The example host's adfs flow: an ADFS server and a site that trusts it, over HTTPS.
source "$(dirname "$0")/prelude.sh" adfs-flow-test "$@"

start_emulator --adfs-server /adfs-farm --adfs-account 'bob@contoso.test:S3cret&<x>' \
  --trust-site /sites/adfs --trust-realm urn:sharepoint:contoso
printf 'S3cret&<x>\n' >"$work/password"
adfs() {  # adfs STATUS DESCRIPTION REALM
  run "$1" "$2" 'S3cret' adfs --adfs "https://localhost:$https_port/adfs-farm" --realm "$3" \
    --site "https://localhost:$https_port/sites/adfs" --user bob@contoso.test \
    --password-file "$work/password" --ca-file "$work/ca.pem" --cookie-jar "$work/jar"
}

adfs 0 "signs in with a password that XML would escape" urn:sharepoint:contoso
check "the jar holds the site's FedAuth cookie" \
  grep -qP '^#HttpOnly_localhost\tFALSE\t/\tTRUE\t0\tFedAuth\tbob@contoso\.test\.[0-9a-f]{32}$' "$work/jar"
adfs 17 "a token for another realm is refused by the site" urn:other
check "a refused sign-in writes no jar" test ! -e "$work/jar"

finish
