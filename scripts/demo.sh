#!/bin/sh
# The product end to end on this machine, on 127.0.0.1 only: a throw-away CA
# with a server and a client certificate, the daemon started with a generated
# configuration (mutual TLS, the client allowed by its certificate's name, a
# post-deploy command), a sample tree deployed as a release, two files
# changed and deployed again (only those two travel), the releases listed,
# the daemon's log shown and the daemon stopped.
# Usage: demo.sh BUILD_DIR      (vqglob is BUILD_DIR/bin/vqglob)
set -eu
build=$(cd "$1" && pwd)
vqglob=$build/bin/vqglob
work=$build/demo-run
rm -rf "$work"
mkdir -p "$work/pki" "$work/target" "$work/sample/docs" "$work/sample/bin"
# The client's CRC cache stays with the demo's files, not in the user's home.
export XDG_CACHE_HOME="$work/cache"

step() {
    printf '\n=== %s\n' "$*"
}

step "a throw-away CA, a server certificate for 127.0.0.1 and a client certificate"
pki=$work/pki
new_key() {
    openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$pki/$1.key" 2>/dev/null
}
new_key ca
openssl req -x509 -new -key "$pki/ca.key" -subj "/CN=vqglob demo CA" -days 1 -out "$pki/ca.pem"
issue() { # name common-name extensions
    new_key "$1"
    openssl req -new -key "$pki/$1.key" -subj "/CN=$2" -out "$pki/$1.csr"
    printf '%s\n' "$3" >"$pki/$1.ext"
    openssl x509 -req -in "$pki/$1.csr" -CA "$pki/ca.pem" -CAkey "$pki/ca.key" -CAcreateserial \
        -days 1 -extfile "$pki/$1.ext" -out "$pki/$1.pem" 2>/dev/null
}
issue server localhost "subjectAltName=DNS:localhost,IP:127.0.0.1"
issue client deploy-client "extendedKeyUsage=clientAuth"
ls "$pki"/*.pem

# Port 0: the daemon takes any free port and prints it.
cat >"$work/serve.conf" <<EOF
[Server]
Listen Address=127.0.0.1
Port=0
Target Root=$work/target
Certificate File=$pki/server.pem
Key File=$pki/server.key
CA File=$pki/ca.pem
Allowed Clients=_ml_text_
deploy-client
_ml_text_
Post Deploy Command=echo "\$(find . -type f | wc -l) files in \$(pwd)"
Log File=$work/serve.log
Max Clients=8
EOF
step "the daemon's configuration"
cat "$work/serve.conf"

step "vqglob serve"
"$vqglob" serve -config="$work/serve.conf" >"$work/serve.out" 2>&1 &
daemon=$!
trap 'kill -TERM $daemon 2>/dev/null || true' EXIT
# The daemon prints its "listening on" line once it accepts connections.
until grep -q '^listening on' "$work/serve.out"; do
    if ! kill -0 "$daemon" 2>/dev/null; then
        cat "$work/serve.out"
        echo "demo: the daemon did not start" >&2
        exit 1
    fi
    sleep 0.1
done
cat "$work/serve.out"
port=$(sed -n 's/^listening on 127\.0\.0\.1:\([0-9]*\)$/\1/p' "$work/serve.out")

i=1
while [ $i -le 20 ]; do
    printf 'page %d of the demo\n' $i >"$work/sample/docs/page$i.txt"
    i=$((i + 1))
done
printf '#!/bin/sh\necho hello from the release\n' >"$work/sample/bin/hello"
chmod 755 "$work/sample/bin/hello"
tls="-cert=$pki/client.pem -key=$pki/client.key -ca=$pki/ca.pem"

step "first deployment of a 21-file tree as a release"
# shellcheck disable=SC2086
"$vqglob" deploy "$work/sample" -to=127.0.0.1:$port $tls -release

step "two files changed: only they travel"
printf 'page 3, changed\n' >"$work/sample/docs/page3.txt"
printf 'page 7, changed\n' >"$work/sample/docs/page7.txt"
# shellcheck disable=SC2086
"$vqglob" deploy "$work/sample" -to=127.0.0.1:$port $tls -release

step "the releases on the target"
# shellcheck disable=SC2086
"$vqglob" releases 127.0.0.1:$port $tls
ls -l "$work/target"
"$work/target/current/bin/hello"

step "the daemon's log"
cat "$work/serve.log"

step "stopping the daemon"
kill -TERM "$daemon"
wait "$daemon" || true
trap - EXIT
echo "demo done; everything is under $work"
