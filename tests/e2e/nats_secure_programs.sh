#!/usr/bin/env bash
# connector-gateway --nats / --forward and bridge_demo --nats against a nats-server that
# asks for a token over TLS, with a throwaway authority and certificate made by
# scripts/make-test-pki: the right token and --nats-ca-file serve a load and a curl
# through the edge; a wrong token or an untrusted certificate stops a program at once
# with the refusal, and no output ever shows the token.
# Usage: nats_secure_programs.sh <connector-gateway> <bridge_demo>
set -euo pipefail
source "$(dirname "$0")/wait_for.sh"
gateway=$1
demo=$2
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do
    { kill -9 "$pid" && wait "$pid"; } 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; tail -n 20 "$work"/*.out; exit 1; }

"$root/scripts/make-test-pki" "$work/pki"
token=$(cat "$work/pki/token")
cat >"$work/server.conf" <<CONF
authorization { token: "$token" }
tls { cert_file: "$work/pki/server.pem", key_file: "$work/pki/server.key" }
CONF
server=$(command -v nats-server || echo /usr/sbin/nats-server)
"$server" -a 127.0.0.1 -p -1 -c "$work/server.conf" >"$work/server.out" 2>&1 &
pids+=($!)
port=
for _ in $(seq 1 100); do  # at most 10 s
  port=$(sed -n 's/.*Listening for client connections on 127.0.0.1:\([0-9]*\).*/\1/p' \
    "$work/server.out")
  [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || fail "nats-server did not start"
url="tls://$token@127.0.0.1:$port"
ca=(--nats-ca-file "$work/pki/ca.pem")

"$gateway" --port 0 --nats "$url" "${ca[@]}" >"$work/service.out" 2>&1 &
pids+=($!)
wait_for "$work/service.out" 's/^serving over NATS at \(.*\) (subjects.*/\1/p' >/dev/null
"$gateway" --port 0 --forward "$url" "${ca[@]}" --delivery-timeout 5 >"$work/edge.out" 2>&1 &
pids+=($!)
edge=$(wait_for "$work/edge.out" 's/^listening on //p')

"$demo" --nats "$url" "${ca[@]}" --nats-timeout 5 --requests 200 --quiet >"$work/demo.out" 2>&1 ||
  fail "bridge_demo over TLS with the token"
answer=$(curl -sS --max-time 5 -H 'Content-Type: application/json' -d '{"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2}' \
  "$edge/shop/ReserveItem")
case $answer in *'"accepted":true'*) ;; *) fail "the edge answered $answer" ;; esac

refused() {  # <expected text> <bridge_demo arguments...>
  local expected=$1
  shift
  local status=0
  timeout 10 "$demo" "$@" --requests 1 --quiet >"$work/refused.out" 2>&1 || status=$?
  [ $status -eq 1 ] || fail "bridge_demo $* exited $status"
  grep -qxF "bridge_demo: $expected" "$work/refused.out" || fail "no '$expected'"
}
refused "NatsLink cannot connect to tls://127.0.0.1:$port: the server refused the credentials (Authorization Violation)" \
  --nats "tls://wrong-$token@127.0.0.1:$port" "${ca[@]}"
refused "NatsLink cannot connect to tls://127.0.0.1:$port: TLS certificate verification failed: unable to get local issuer certificate" \
  --nats "$url"
! grep -l "$token" "$work"/{service,edge,demo,refused}.out || fail "the token shows in an output"
echo "over NATS with a token and TLS: service, edge and bridge_demo as expected"
