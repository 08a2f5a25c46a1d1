#!/usr/bin/env bash
# connector-gateway and bridge_demo as a user mistypes them: an unknown flag, a flag
# without its value, a bad value and flags that do not go together each print one line
# naming the flags on stderr (no usage text) and exit 2. Then a gateway that served one
# request says so in the singular, answers a non-JSON content type 415, a body that is
# not an object 400 and an unknown order 404, and bridge_demo prints the failure it
# demonstrates with its type and status, in process and over HTTP.
# Usage: program_usage.sh <path of connector-gateway> <path of bridge_demo>
set -euo pipefail
source "$(dirname "$0")/wait_for.sh"
gateway=$1
demo=$2
work=$(mktemp -d)
pid=
cleanup() {
  [ -n "$pid" ] && kill -9 "$pid" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect_usage_error <expected stderr> <program> <args...>: exit 2, that one line on
# stderr, nothing on stdout.
expect_usage_error() {
  local expected=$1
  shift
  local status=0
  "$@" >"$work/stdout" 2>"$work/stderr" </dev/null || status=$?
  [ $status -eq 2 ] || fail "$* exited $status, not 2"
  [ "$(cat "$work/stderr")" = "$expected" ] ||
    fail "$* printed on stderr: $(cat "$work/stderr") (expected: $expected)"
  [ ! -s "$work/stdout" ] || fail "$* printed on stdout: $(head -c 200 "$work/stdout")"
}

expect_usage_error "connector-gateway: unknown option --bogus (see --help)" "$gateway" --bogus
expect_usage_error "connector-gateway: unknown option --bogus (see --help)" \
  "$gateway" --port 0 --bogus 1
expect_usage_error "connector-gateway: unknown option extra (see --help)" "$gateway" extra
expect_usage_error "connector-gateway: unknown option --port=1 (see --help)" "$gateway" --port=1
expect_usage_error "connector-gateway: --port needs a value" "$gateway" --port
expect_usage_error "connector-gateway: --tls-cert needs a value" "$gateway" --port 0 --tls-cert
expect_usage_error "connector-gateway: bad value 'abc' for --port" "$gateway" --port abc
expect_usage_error "connector-gateway: bad value '0' for --threads" "$gateway" --threads 0
expect_usage_error "connector-gateway: bad value '1.2345' for --header-timeout" \
  "$gateway" --header-timeout 1.2345
expect_usage_error "connector-gateway: --tls-cert needs --tls-key" \
  "$gateway" --port 0 --tls-cert chain.pem
expect_usage_error "connector-gateway: --tls-key needs --tls-cert" \
  "$gateway" --port 0 --tls-key key.pem
expect_usage_error "connector-gateway: --nats-ca-file goes with --nats or --forward" \
  "$gateway" --nats-ca-file ca.pem
expect_usage_error "connector-gateway: --nats and --forward exclude each other (an edge serves no services)" \
  "$gateway" --nats nats://127.0.0.1:1 --forward nats://127.0.0.1:1

expect_usage_error "bridge_demo: unknown option --bogus (see --help)" "$demo" --bogus
expect_usage_error "bridge_demo: unknown option --bogus (see --help)" "$demo" --quiet --bogus
expect_usage_error "bridge_demo: unknown option extra (see --help)" "$demo" extra
expect_usage_error "bridge_demo: --requests needs a value" "$demo" --requests
expect_usage_error "bridge_demo: --http needs a value" "$demo" --quiet --http
expect_usage_error "bridge_demo: --token-file needs a value" "$demo" --token-file
expect_usage_error "bridge_demo: --requests needs a whole number from 1 to 100000000" \
  "$demo" --requests 0
expect_usage_error "bridge_demo: --nats-timeout needs seconds from 0.001 to 86400" \
  "$demo" --nats-timeout x
expect_usage_error "bridge_demo: --ca-file and --token-file go with --http" "$demo" --ca-file ca.pem
expect_usage_error "bridge_demo: --ca-file goes with an https:// URL in --http" \
  "$demo" --http http://127.0.0.1:1 --ca-file ca.pem

for program in "$gateway" "$demo"; do
  status=0
  "$program" --help >"$work/stdout" 2>"$work/stderr" || status=$?
  [ $status -eq 0 ] || fail "$program --help exited $status"
  grep -q "^usage: " "$work/stdout" || fail "$program --help printed no usage"
  [ ! -s "$work/stderr" ] || fail "$program --help printed on stderr"
done

# bridge_demo in process: the failing cancellation, printed with its type and status.
status=0
"$demo" --requests 10 >"$work/demo.out" 2>&1 || status=$?
[ $status -eq 0 ] || fail "bridge_demo exited $status: $(cat "$work/demo.out")"
grep -qxF '  outcome:       connector::transport::StatusError 404 "order not found: ORD-404"' \
  "$work/demo.out" || fail "bridge_demo's outcome line: $(grep outcome "$work/demo.out")"

# A gateway that serves one request; then one that serves three requests and bridge_demo
# --http (its shown request, its failing one and a load of 10).
"$gateway" --port 0 --drain-timeout 2 >"$work/gateway.out" 2>&1 &
pid=$!
url=$(wait_for "$work/gateway.out" 's/^listening on //p')
answer=$(curl -sS --max-time 5 -H 'Content-Type: application/json' \
  -d '{"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2}' "$url/shop/ReserveItem")
[ "$answer" = '{"reservationId":"R-000001","sku":"LAMP-01","quantity":2,"accepted":true,"type":"shop/Reservation"}' ] ||
  fail "reserve answered $answer"
kill -TERM "$pid"
status=0
wait "$pid" || status=$?
pid=
[ $status -eq 0 ] || fail "exit status $status after SIGTERM"
grep -qxF "connector-gateway: stopped on signal 15, served 1 request" "$work/gateway.out" ||
  fail "the stop line: $(grep stopped "$work/gateway.out")"

"$gateway" --port 0 --drain-timeout 2 >"$work/gateway.out" 2>&1 &
pid=$!
url=$(wait_for "$work/gateway.out" 's/^listening on //p')
# expect_answer <status> <body> <curl args...>
expect_answer() {
  local status=$1 body=$2
  shift 2
  local got
  got=$(curl -sS --max-time 5 -o "$work/body" -w '%{http_code}' "$@")
  [ "$got" = "$status" ] && [ "$(cat "$work/body")" = "$body" ] ||
    fail "curl $* answered $got $(cat "$work/body") (expected: $status $body)"
}
expect_answer 415 '{"error":"Content-Type must be application/json"}' \
  -H 'Content-Type: text/plain' -d '{"type":"shop/ReserveItem","sku":"LAMP-01","quantity":2}' \
  "$url/shop/ReserveItem"
expect_answer 400 '{"error":"the request body must be a JSON object"}' \
  -H 'Content-Type: application/json' -d '[1,2]' "$url/shop/ReserveItem"
expect_answer 404 '{"error":"order not found: ORD-404"}' \
  -H 'Content-Type: application/json; charset=utf-8' \
  -d '{"type":"shop/CancelOrder","orderId":"ORD-404"}' "$url/shop/CancelOrder"
status=0
"$demo" --requests 10 --http "$url" >"$work/demo.out" 2>&1 || status=$?
[ $status -eq 0 ] || fail "bridge_demo --http exited $status: $(cat "$work/demo.out")"
grep -qxF "  outcome:       std::runtime_error \"POST $url/shop/CancelOrder failed: HTTP 404 Not Found: order not found: ORD-404\"" \
  "$work/demo.out" || fail "bridge_demo --http's outcome line: $(grep outcome "$work/demo.out")"
kill -TERM "$pid"
wait "$pid" || true
pid=
grep -qxF "connector-gateway: stopped on signal 15, served 15 requests" "$work/gateway.out" ||
  fail "the stop line: $(grep stopped "$work/gateway.out")"

[ $failures -eq 0 ] || exit 1
echo "connector-gateway and bridge_demo: usage errors, statuses and the demo's outcome as expected"
