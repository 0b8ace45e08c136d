# A true last line on every way out. Sourced by common.sh.

current_step="looking at the options"
current_log=
reason=
verdict_said=
clean_up=true

step() {
  current_step=$*
  current_log=
  printf '\n[%3ds] %s\n' "$((SECONDS - started))" "$*"
}

# fail TEXT: ends the script; the text says why.
fail() {
  reason=$*
  printf '\n%s\n' "$*" >&2
  exit 1
}

# quietly COMMAND...: keeps what it prints for the verdict in case it fails.
quietly() {
  current_log=$(mktemp "${TMPDIR:-/tmp}/quorvale-step.XXXXXX")
  "$@" > "$current_log" 2>&1 || return
  rm -f "$current_log"
  current_log=
}

# The clean-up comes first, so that nothing does after it.
verdict() {
  verdict_said=yes
  "$clean_up"
  step "VERDICT: $*"
}

# judge STATUS TEXT: the verdict on checks that ended with that status (`finish` in expect.sh), and the
# script's end.
judge() {
  case "$1" in
    0) verdict "$2" ;;
    10) verdict "FAILED; the lines marked with a cross say what is not as it should be." ;;
    124 | 137) verdict "FAILED in the step \"$current_step\", which took too long and was ended." ;;
    *) verdict "FAILED in the step \"$current_step\" (status $1); its last lines are above." ;;
  esac
  exit "$(($1 > 0))"
}

# promise_verdict [CLEAN-UP]: from here on the last line is a verdict, however the script ends. The
# clean-up, a function, comes before it.
promise_verdict() {
  clean_up=${1:-true}
  trap 'end_with_verdict $?' EXIT
  trap 'reason="It was interrupted."; exit 130' INT
  trap 'reason="It was told to end."; exit 143' TERM HUP
}

end_with_verdict() {
  local status=$1
  trap - EXIT
  trap '' INT TERM HUP
  if [ -z "$verdict_said" ] && [ "$status" -ne 0 ]; then
    say_what_failed "$status"
  else
    "$clean_up" || true
  fi
  exit "$status"
}

say_what_failed() {
  local where=$current_step
  if [ -n "$current_log" ]; then
    say
    say "The last lines of that step:"
    tail -n 15 "$current_log" | sed 's/^/  /'
    rm -f "$current_log"
  fi
  verdict "FAILED (status $1) in the step \"${where%%:*}\".${reason:+ $reason}"
}
