# What must have changed after the demonstration's update, line by line. Sourced by demo-run.

opened_process() { running "$installed/Contents/Linux/QuorvaleSample"; }
opened_by_console_user() { [ "$(stat -c %u "/proc/$(opened_process)")" = "$user_id" ]; }
version_of() { cat "$1/Contents/Resources/version.txt"; }

check_log() {
  local line
  for line in "$@"; do
    expect "the log says \"$line\"" grep -qF -- " - $line" "$results/log.txt"
  done
}

check_processes() {
  local process
  expect "the helper ended with status 0" test "$helper_status" -eq 0
  case "$who" in
    root) expect "it ran as superuser" test "$ran_as" -eq 0 ;;
    user) expect "it ran as $user" test "$ran_as" -eq "$user_id" ;;
  esac
  for process in "${!updaters[@]}"; do
    expect "the process \"${updater_names[$process]}\" is gone" absent alive "${updaters[$process]}"
  done
}

# What an administrator's rights move to the Trash has no information for bringing it back.
check_trash() {
  local trash=$home/.local/share/Trash trashed
  # The latest: on a desktop the Trash may hold those of earlier demonstrations.
  trashed=$(find "$trash/files" -maxdepth 1 -name 'Quorvale Sample*.app' -printf '%C@ %p\n' |
    sort -n | tail -n 1 | cut -d ' ' -f 2-)
  expect "the old version, 1.0, is in the Trash" test "$(version_of "$trashed")" = 1.0
  [ "$who" = root ] || return 0
  expect "the Trash knows where it came from" test -s "$trash/info/Quorvale Sample.app.trashinfo"
}

check_bundle() {
  local expected="$scratch/image/Quorvale Sample.app"
  expect "the new version, 2.0, is installed" test "$(version_of "$installed")" = 2.0
  expect "every file, link and mode is as on the disk image" \
    diff -r --no-dereference "$expected" "$installed"
  expect "permissions, owners and times too" test -z \
    "$(rsync -ai --dry-run --delete "$expected/" "$installed/" | grep -v '^\.d\.\.t.*\./$' || true)"
  expect "the application is registered" test -s "$entries/com.quorvale.Sample.desktop"
}

check_image() {
  expect "the disk image is detached" absent mountpoint -q "$mount_point"
  [ "$who" != root ] || expect "its loop device is free" absent losetup "$image_source"
}

check_relaunch() {
  if [ "$mode" = silent ]; then
    expect "the application was not reopened" absent opened_process
    return
  fi
  expect "the application was reopened" wait_for 10 opened_process
  expect "by $user, not by the superuser" opened_by_console_user
  expect "its window is shown" wait_for 10 window_is_shown "Quorvale Sample"
  take_picture sample "Quorvale Sample" || true
  expect "the helper's window was shown" test -s "$results/window.png"
  check_log "Launching app..."
}

check_everything() {
  step "What changed:"
  check_processes
  check_trash
  check_bundle
  check_image
  check_relaunch
  check_log "Path is valid." "Trashing old application..."
  [ "$who" = root ] || check_log "Auth trashing old application..."
  check_log "File copy successful." "Cleaning up..." "Terminating self..."
}
