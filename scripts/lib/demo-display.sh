# The screen of the demonstration, and what is on it. Sourced by demo-run.

# The present display when there is one, else a private X server with a window manager. Without
# -noreset the server would throw everybody out whenever its last client leaves.
open_display() {
  if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    share_display
    return
  fi
  Xvfb -displayfd 3 -screen 0 800x500x24 -nolisten tcp -noreset -ac 3> "$scratch/display" 2> /dev/null &
  wait_for 10 test -s "$scratch/display" || { say "No private X server could be started."; exit 1; }
  DISPLAY=:$(cat "$scratch/display")
  export DISPLAY
  # A window that comes up while the window manager does would be overlooked by it.
  openbox --startup "touch '$scratch/window-manager-is-ready'" > /dev/null 2>&1 &
  wait_for 10 test -e "$scratch/window-manager-is-ready" || say "The window manager is late."
}

# The simulated person may use the display of the one who watches.
share_display() {
  [ "$who" = user ] && [ -s "${XAUTHORITY:-}" ] || return 0
  install -m 600 -o "$user_id" -g "$user_id" "$XAUTHORITY" "$home/.Xauthority"
}

# shown_window TITLE: the number of the window with this title that is on the screen.
shown_window() { xdotool search --onlyvisible --name "^$1\$" | head -n 1 | grep .; }
window_is_shown() { shown_window "$1" > /dev/null 2>&1; }

# take_picture NAME TITLE: the window with its frame.
take_picture() {
  import -silent -frame -window "$(shown_window "$2" 2> /dev/null)" "$results/$1.png"
}
