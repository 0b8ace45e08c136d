# The screen of a demonstration, and what is on it. Sourced by the parts that run beside the helper,
# after expect.sh, with `scratch` and `results` set.

displays=()

# open_private_display SIZE: an X server with a window manager. Without -noreset the server would throw
# everybody out whenever its last client leaves.
open_private_display() {
  sockets_were_there=yes
  [ -d /tmp/.X11-unix ] || sockets_were_there=no
  Xvfb -displayfd 3 -screen 0 "$1x24" -nolisten tcp -noreset -ac 3> "$scratch/display" 2> /dev/null &
  displays+=($!)
  wait_for 20 test -s "$scratch/display" || { say "No private X server could be started."; exit 1; }
  DISPLAY=:$(cat "$scratch/display")
  export DISPLAY
  # A window that comes up while the window manager does would be overlooked by it.
  openbox --startup "touch '$scratch/window-manager-is-ready'" > /dev/null 2>&1 &
  displays=($! "${displays[@]}")
  wait_for 20 test -e "$scratch/window-manager-is-ready" || say "The window manager is late."
}

# A server that ends in peace takes its lock and its socket with it.
close_private_display() {
  local process
  for process in "${displays[@]}"; do
    kill "$process" 2> /dev/null || continue
    wait_for 5 absent alive "$process" || kill -KILL "$process" 2> /dev/null || true
  done
  [ "${sockets_were_there:-yes}" = yes ] || rmdir /tmp/.X11-unix 2> /dev/null || true
}

alive() { [ -d "/proc/$1" ] && ! grep -q '^State:.*Z' "/proc/$1/status" 2> /dev/null; }

# shown_window TITLE: the number of the window with this title that is on the screen.
shown_window() {
  timeout 10 xdotool search --onlyvisible --name "^$1\$" 2> /dev/null | head -n 1 | grep .
}
window_is_shown() { shown_window "$1" > /dev/null; }

# take_picture NAME TITLE: the window with its frame.
take_picture() {
  local window
  window=$(shown_window "$2") || return 1
  timeout 20 import -silent -frame -window "$window" "$results/$1.png" 2> /dev/null
}
