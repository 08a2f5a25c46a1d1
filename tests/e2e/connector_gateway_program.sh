#!/usr/bin/env bash
# connector-gateway as its users run it: starts on a free loopback port, answers a typed
# request, /healthz and /schemas (the shop's four JSON Schemas), then drains on SIGTERM and
# exits 0. Usage: connector_gateway_program.sh <path of connector-gateway>
set -euo pipefail
source "$(dirname "$0")/wait_for.sh"
program=$1
work=$(mktemp -d)
pid=
cleanup() {
  [ -n "$pid" ] && kill -9 "$pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

"$program" --port 0 --drain-timeout 2 >"$work/out" 2>&1 &
pid=$!
url=$(wait_for "$work/out" 's/^listening on //p')

fail() { echo "FAIL: $*"; cat "$work/out"; exit 1; }
answer=$(curl -sS --max-time 5 -H 'Content-Type: application/json' \
  -d '{"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2}' "$url/shop/ReserveItem")
[ "$answer" = '{"reservationId":"R-000001","sku":"LAMP-01","quantity":2,"accepted":true,"type":"shop/Reservation"}' ] ||
  fail "reserve answered $answer"
[ "$(curl -sS --max-time 5 "$url/healthz")" = '{"status":"ok"}' ] || fail "healthz"
curl -sS --max-time 5 "$url/schemas" >"$work/schemas"
python3 - "$work/schemas" <<'PY' || fail "schemas"
import json, sys
schemas = json.load(open(sys.argv[1]))
assert sorted(schemas) == ["shop/CancelOrder", "shop/OrderCancelled", "shop/Reservation",
                           "shop/ReserveItem"], sorted(schemas)
for name, schema in schemas.items():
    assert schema["$schema"] == "https://json-schema.org/draft/2020-12/schema", name
    assert schema["properties"]["type"]["const"] == name, name
PY

kill -TERM "$pid"
status=0
wait "$pid" || status=$?
pid=
[ $status -eq 0 ] || fail "exit status $status after SIGTERM"
grep -q "stopped on signal" "$work/out" || fail "no stop line"
echo "connector-gateway: reserve, healthz, schemas and drain on SIGTERM as expected"
