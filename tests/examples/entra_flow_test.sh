#!/usr/bin/env bash
# The example host's entra command against the emulator's Entra ID service and a
# SharePoint Online site, under their real names behind its proxy: every flow
# ends in a header line that curl sends to the site.
source "$(dirname "$0")/prelude.sh" entra-flow-test "$@"

app=3f2a1c5e-7b64-4d19-a8e0-92c4b7d61f05      # public client: the user flows
daemon=c81d4f36-0a9e-4b7c-b512-6e3d28f94a70   # confidential: certificate and secret
secret='Cl1ent~Secret.Value_42'
printf '%s\n' "$secret" >"$work/secret"
printf 'Spring&<2024>\n' >"$work/password"
printf 'wrong\n' >"$work/wrong"
printf 'Autumn-77\n' >"$work/mfa-password"
printf 'Key-Pass-9\n' >"$work/key-password"
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/app.key" -out "$work/app.pem" -days 2 \
  -subj /CN=signin-entra-test 2>/dev/null
openssl pkey -in "$work/app.key" -aes256 -passout pass:Key-Pass-9 -out "$work/encrypted.key"
openssl pkcs12 -export -in "$work/app.pem" -inkey "$work/app.key" -passout pass:Key-Pass-9 \
  -out "$work/app.pfx"

start_emulator --entra-site contoso.sharepoint.com --entra-tenant 6c0e7b4a-3f1d-4e8a-9b2c-5d7e8f9a0b1c \
  --entra-app "$app" --entra-app "$daemon" --entra-app-confidential "$daemon" \
  --entra-app-certificate "$daemon:$work/app.pem" --entra-app-secret "$daemon:$secret" \
  --entra-account 'adele@contoso.com:Spring&<2024>' --entra-mfa-account 'megan@contoso.com:Autumn-77' \
  --entra-device-interval 1
proxy="http://127.0.0.1:$http_port"
site=https://contoso.sharepoint.com/sites/team
entra() {  # entra STATUS DESCRIPTION SECRET ARGS...
  local want=$1 what=$2 secret=$3; shift 3
  run "$want" "$what" "$secret" entra --site "$site" --proxy "$proxy" --ca-file "$work/ca.pem" "$@"
}
site_status() { curl -sS --proxy "$proxy" --cacert "$work/ca.pem" -o /dev/null -w '%{http_code}' "$@" "$site/_api/web"; }
# The header file holds one line, the token stayed out of the log, and the site takes it.
site_takes() {
  local file=${1:-$work/out}
  [ "$(wc -l <"$file")" = 1 ] && grep -qE '^Authorization: Bearer [^ ]+$' "$file" &&
    ! grep -qF -- "$(cut -d' ' -f3 "$file")" "$work/err" && [ "$(site_status -H @"$file")" = 200 ]
}
token_requests() { grep -c 'oauth2/v2.0/token' "$work/emulator.log"; }

certificate=(--client-id "$daemon" --certificate "$work/app.pem")
entra 0 "certificate with its PEM key" "$secret" "${certificate[@]}" --key "$work/app.key"
check "... the site takes its header" site_takes
entra 0 "certificate with an encrypted PEM key" Key-Pass-9 "${certificate[@]}" --key "$work/encrypted.key" \
  --key-password-file "$work/key-password"
check "... the site takes its header" site_takes
entra 0 "PKCS#12 file with its password" Key-Pass-9 --client-id "$daemon" --certificate "$work/app.pfx" \
  --key-password-file "$work/key-password"
check "... the site takes its header" site_takes
entra 13 "a missing certificate file is the library's invalid input" "$secret" --client-id "$daemon" \
  --certificate "$work/none.pem" --key "$work/app.key"
entra 1 "an unreadable --key-password-file" "$secret" "${certificate[@]}" --key "$work/encrypted.key" \
  --key-password-file "$work/none"
entra 0 "--tenant names the tenant in the request path" "$secret" "${certificate[@]}" --key "$work/app.key" \
  --tenant contoso.onmicrosoft.com
check "... and the request went there" grep -q 'POST login.microsoftonline.com /contoso.onmicrosoft.com/oauth2/v2.0/token' "$work/emulator.log"
entra 17 "--scope for another host: the site check refuses the token" "$secret" "${certificate[@]}" \
  --key "$work/app.key" --scope https://fabrikam.sharepoint.com/.default

printf 'an old header\n' >"$work/header" && chmod 644 "$work/header"
entra 0 "--header-out replaces an old file" "$secret" "${certificate[@]}" --key "$work/app.key" --header-out "$work/header"
check "... private to the user, and nothing on standard output" \
  bash -c '[ "$(stat -c %a "$0")" = 600 ] && [ ! -s "$1" ]' "$work/header" "$work/out"
check "... the site takes it" site_takes "$work/header"
entra 1 "--header-out into a missing folder" "$secret" "${certificate[@]}" --key "$work/app.key" \
  --header-out "$work/none/header"

entra 17 "client secret: the site check reports SharePoint's refusal" "$secret" \
  --client-id "$daemon" --client-secret-file "$work/secret"
check "... in the site's own words" grep -q 'Unsupported app only token\.' "$work/err"
entra 0 "client secret with --no-site-check" "$secret" --client-id "$daemon" --client-secret-file "$work/secret" \
  --no-site-check
check "... prints the header" grep -qE '^Authorization: Bearer [^ ]+$' "$work/out"
entra 1 "an unreadable --client-secret-file" "$secret" --client-id "$daemon" --client-secret-file "$work/none"

adele=(--client-id "$app" --user adele@contoso.com)
entra 0 "password, kept in the token cache" 'Spring&<2024>' "${adele[@]}" --password-file "$work/password" \
  --token-cache "$work/cache.json"
check "... the site takes its header" site_takes
requests=$(token_requests)
entra 0 "silent from the token cache" "$secret" --client-id "$app" --token-cache "$work/cache.json"
no_new_request() { [ "$(token_requests)" = "$requests" ]; }
check "... the site takes its header" site_takes
check "... and no token was asked for" no_new_request
entra 19 "silent with an empty token cache" "$secret" --client-id "$app" --token-cache "$work/empty.json"
entra 17 "a wrong password" wrong "${adele[@]}" --password-file "$work/wrong"
entra 19 "an MFA account can't sign in with a password" Autumn-77 --client-id "$app" --user megan@contoso.com \
  --password-file "$work/mfa-password"

# Device code: the user code comes from signin's standard error, approval from the emulator.
# wait_for PID: its exit status, or 143 after killing it when 30 s weren't enough
# (a sanitized build on a busy machine is slow, a hung one is not let off).
wait_for() {
  for _ in $(seq 600); do kill -0 "$1" 2>/dev/null || break; sleep 0.05; done
  kill "$1" 2>/dev/null
  wait "$1"
}
start_device_code() {
  "$signin" entra --site "$site" --proxy "$proxy" --ca-file "$work/ca.pem" --client-id "$app" --device-code \
    >"$work/out" 2>"$work/err" &
  signin_pid=$!
  user_code=""
  for _ in $(seq 600); do
    user_code=$(grep -oE 'code [A-Z0-9]{6,}' "$work/err" | head -1 | cut -d' ' -f2)
    [ -n "$user_code" ] && break
    sleep 0.05
  done
}
start_device_code
check "device code: the service's message is on standard error" test -n "$user_code"
check "... the MFA account approves it" test "$(curl -sS --proxy "$proxy" --cacert "$work/ca.pem" -o /dev/null \
  -w '%{http_code}' -d "user_code=$user_code" -d account=megan@contoso.com \
  https://login.microsoftonline.com/_emulator/devicecode/approve)" = 200
wait_for "$signin_pid"
check "... signin exits 0" test $? = 0
check "... the site takes its header" site_takes
start_device_code
# Only once the instructions are out is signin waiting, with its handler in place.
check "... a second device-code sign-in is waiting" test -n "$user_code"
kill -INT "$signin_pid"
wait_for "$signin_pid"
check "device code: Ctrl-C during the wait exits 20" test $? = 20

# The browser: curl follows the sign-in page's redirect to signin's listener on
# localhost, which must not go through the proxy. What the browser prints must
# stay off signin's standard output, which carries the header alone.
printf '#!/bin/sh\necho "opening $1"\nexec curl -sS -L --proxy %s --noproxy localhost --cacert %s -o /dev/null "$1"\n' \
  "$proxy" "$work/ca.pem" >"$work/browser"
entra 0 "browser, with curl as the browser" "$secret" --client-id "$app" --browser --browser-command "sh $work/browser"
check "... the site takes its header" site_takes
entra 20 "a browser command that can't start" "$secret" --client-id "$app" --browser --browser-command "$work/none"
check "... says so" grep -q 'cannot start the browser' "$work/err"

usage_rows=(
  "--site is required|entra --client-id $app --device-code"
  "--client-id is required|entra --site $site --device-code"
  "two flows at once|entra --site $site --client-id $app --device-code --browser"
  "--key without --certificate|entra --site $site --client-id $app --device-code --key $work/app.key"
  "--browser-command without --browser|entra --site $site --client-id $app --device-code --browser-command sh"
  "--password-stdin without --user|entra --site $site --client-id $app --device-code --password-stdin"
  "silent without --token-cache|entra --site $site --client-id $app"
  "a cookie option to entra|entra --site $site --client-id $app --device-code --cookie-jar $work/jar"
  "an entra option to fba|fba --site $site --user alice --client-id $app"
  "fba still needs --user|fba --site $site"
)
for row in "${usage_rows[@]}"; do
  # shellcheck disable=SC2086 # each row is a word list
  run 2 "command line: ${row%%|*}" "$secret" ${row#*|}
done
check "--help documents the flows and exit statuses 19 to 21" \
  bash -c '"$0" --help | grep -q -- "--client-secret-file" && "$0" --help | grep -q "^      21 timed out"' "$signin"

finish
