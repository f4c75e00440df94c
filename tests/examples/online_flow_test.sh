#!/usr/bin/env bash
# The example host's online flow against the emulator's sign-in service, SharePoint
# Online sites and a federated tenant's ADFS server, under their names behind its proxy.
source "$(dirname "$0")/prelude.sh" online-flow-test "$@"

start_emulator --online-site contoso.sharepoint.com --online-site fabrikam.sharepoint.com \
  --online-bpos-site legacy.sharepoint.com \
  --office365-account 'adele@contoso.com:Spring&<2024>' \
  --office365-federated 'megan@fabrikam.com:https://adfs.fabrikam.com/adfs/ls/?username=megan%40fabrikam.com' \
  --adfs-server / --adfs-account 'megan@fabrikam.com:Autumn-77'
printf 'Spring&<2024>\n' >"$work/managed"
printf 'Autumn-77\n' >"$work/federated"
online() {  # online STATUS DESCRIPTION PASSWORD-FILE ARGS...
  local want=$1 what=$2 password=$3; shift 3
  run "$want" "$what" "$(head -1 "$work/$password")" online --proxy "http://127.0.0.1:$http_port" \
    --ca-file "$work/ca.pem" --password-file "$work/$password" --cookie-jar "$work/jar" "$@"
}
contoso=(--site https://contoso.sharepoint.com/sites/team --user adele@contoso.com)
fabrikam=(--site https://fabrikam.sharepoint.com/sites/sales --user megan@fabrikam.com)

online 0 "managed tenant signs in with a password that XML would escape" managed "${contoso[@]}"
check "the managed jar holds FedAuth and rtFa" bash -c "grep -qP '^#HttpOnly_contoso\.sharepoint\.com\tFALSE\t/\tTRUE\t0\tFedAuth\t' $work/jar &&
  grep -qP '^#HttpOnly_\.sharepoint\.com\tTRUE\t/\tTRUE\t0\trtFa\t' $work/jar"
online 0 "federated tenant signs in through its ADFS server" federated "${fabrikam[@]}" \
  --adfs-realm urn:federation:MicrosoftOnline
check "the federated sign-in asked the tenant's ADFS server" \
  grep -q 'POST adfs.fabrikam.com /adfs/services/trust/2005/usernamemixed -> 200' "$work/emulator.log"
online 2 "a federated tenant needs --adfs-realm" federated "${fabrikam[@]}"
online 16 "a wrong password is a fault of the token service" federated "${contoso[@]}"
online 18 "a site converted from BPOS is told apart" managed --site https://legacy.sharepoint.com/ --user adele@contoso.com
online 17 "an address no tenant owns" managed --site https://contoso.sharepoint.com/sites/team --user nobody@elsewhere.test
online 16 "--sts replaces the token service (with a slash too many, so nothing is there)" managed "${contoso[@]}" \
  --sts https://login.microsoftonline.com/
check "--sts reached the token request" grep -q 'POST login.microsoftonline.com //extSTS.srf -> 404' "$work/emulator.log"

finish
