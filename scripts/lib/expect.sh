# What the checks of the demonstrations share. Sourced by bash; `wrong` counts what does not hold.

wrong=0

say() { printf '%s\n' "$*"; }
step() { printf '\n%s\n' "$*"; }

# expect TEXT COMMAND...: one line of the verdict.
expect() {
  local text=$1
  shift
  if "$@" > /dev/null 2>&1; then
    say "  ✓ $text"
  else
    say "  ✗ $text"
    wrong=$((wrong + 1))
  fi
}
# finish: ends the script; its status tells crosses from all other failures.
finish() { exit "$((wrong > 0 ? 10 : 0))"; }
absent() { ! "$@"; }

# wait_for SECONDS COMMAND...
wait_for() {
  local end=$((SECONDS + $1))
  shift
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || return 1
    sleep 0.1
  done
}
