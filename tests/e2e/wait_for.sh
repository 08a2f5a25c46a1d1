# Sourced by the program tests of this folder.
# wait_for <file> <sed expression>: prints what the expression prints from the file as soon
# as it prints anything (a program's "listening on <url>" line, say), checking every
# 100 ms for at most 10 s; otherwise shows the file on stderr and returns 1.
wait_for() {
  local value
  for _ in $(seq 1 100); do
    value=$(sed -n "$2" "$1")
    [ -n "$value" ] && { echo "$value"; return 0; }
    sleep 0.1
  done
  { echo "nothing matched $2 in $1 within 10 s:"; cat "$1"; } >&2
  return 1
}
