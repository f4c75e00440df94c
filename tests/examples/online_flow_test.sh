#!/usr/bin/env bash
# The example host's online flow end to end against the standalone emulator:
# the Office 365 sign-in service, SharePoint Online sites and a federated
# tenant's ADFS server, all under their real host names behind its proxy.
#
#   online_flow_test.sh SIGNIN EMULATOR
source "$(dirname "$0")/prelude.sh" online-flow-test "$@"

start_emulator --online-site contoso.sharepoint.com --online-site fabrikam.sharepoint.com \
  --online-bpos-site legacy.sharepoint.com \
  --office365-account 'adele@contoso.com:Spring&<2024>' \
  --office365-federated 'megan@fabrikam.com:https://adfs.fabrikam.com/adfs/ls/?username=megan%40fabrikam.com' \
  --adfs-server / --adfs-account 'megan@fabrikam.com:Autumn-77'
proxy="http://127.0.0.1:$http_port"
printf 'Spring&<2024>\n' >"$work/managed"
printf 'Autumn-77\n' >"$work/federated"

# expect STATUS DESCRIPTION PASSWORD-FILE ARGS...: one sign-in, jar in $work/jar.
expect() {
  local want=$1 what=$2 password=$3; shift 3
  rm -f "$work/jar"
  "$signin" online --proxy "$proxy" --ca-file "$work/ca.pem" --password-file "$work/$password" \
    --cookie-jar "$work/jar" --verbose "$@" >/dev/null 2>"$work/err"
  local got=$?
  if [ "$got" = "$want" ] && ! grep -q -e 'Spring&' -e 'Autumn-77' "$work/err"; then
    echo "ok   - $what"
  else
    fail "$what (exit $got, or a password in the log)"; grep -v '^\[debug\]' "$work/err" | tail -5
  fi
}

# page SITE: the status a protected page of SITE gives with the jar's cookies.
page() {
  curl -sS --proxy "$proxy" --cacert "$work/ca.pem" -b "$work/jar" -o /dev/null -w '%{http_code}' "$1"
}

expect 0 "managed tenant signs in with a password that XML would escape" managed \
  --site https://contoso.sharepoint.com/sites/team --user adele@contoso.com
grep -qP '^#HttpOnly_contoso\.sharepoint\.com\tFALSE\t/\tTRUE\t0\tFedAuth\t' "$work/jar" \
  || fail "the managed jar lacks FedAuth"
grep -qP '^#HttpOnly_\.sharepoint\.com\tTRUE\t/\tTRUE\t0\trtFa\t' "$work/jar" \
  || fail "the managed jar lacks rtFa"
[ "$(page https://contoso.sharepoint.com/sites/team)" = 200 ] || fail "the managed cookies open no page"

expect 0 "federated tenant signs in through its ADFS server" federated \
  --site https://fabrikam.sharepoint.com/sites/sales --user megan@fabrikam.com \
  --adfs-realm urn:federation:MicrosoftOnline
grep -q 'POST adfs.fabrikam.com /adfs/services/trust/2005/usernamemixed -> 200' "$work/emulator.log" \
  || fail "the federated sign-in did not ask the tenant's ADFS server"
[ "$(page https://fabrikam.sharepoint.com/sites/sales)" = 200 ] || fail "the federated cookies open no page"

expect 2 "a federated tenant needs --adfs-realm" federated \
  --site https://fabrikam.sharepoint.com/sites/sales --user megan@fabrikam.com
expect 16 "a wrong password is a fault of the token service" federated \
  --site https://contoso.sharepoint.com/sites/team --user adele@contoso.com
[ ! -e "$work/jar" ] || fail "a refused sign-in wrote a jar"
expect 18 "a site converted from BPOS is told apart" managed \
  --site https://legacy.sharepoint.com/ --user adele@contoso.com
expect 17 "an address no tenant owns" managed \
  --site https://contoso.sharepoint.com/sites/team --user nobody@elsewhere.test
expect 16 "--sts replaces the token service (with a slash too many, so nothing is there)" managed \
  --site https://contoso.sharepoint.com/sites/team --user adele@contoso.com \
  --sts https://login.microsoftonline.com/
grep -q 'POST login.microsoftonline.com //extSTS.srf -> 404' "$work/emulator.log" \
  || fail "--sts did not reach the token request"

finish
