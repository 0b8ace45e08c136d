# What must have changed after the demonstration's update, line by line. Sourced by demo-run.

opened_process() { running "$installed/Contents/Linux/QuorvaleSample"; }
# The owner of the folder in /proc is root where a process is not to be looked into.
opened_by_console_user() { [ "$(user_of "$(opened_process)")" = "$user_id" ]; }
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
    root) expect "it ran as superuser" test "$ran_as" = 0 ;;
    user) expect "it ran as $user" test "$ran_as" = "$user_id" ;;
  esac
  for process in "${!updaters[@]}"; do
    expect "the process \"${updater_names[$process]}\" is gone" absent alive "${updaters[$process]}"
  done
}

# What an administrator's rights move to the Trash has no information for bringing it back.
check_trash() {
  [ "$destination" = "$installed" ] || return 0
  if [ "$machine_namespaces-$elevated" = none-yes ]; then
    missing "the old version in the Trash" \
      "root's tools keep out of a person's folders here: what others link there could not be kept from them"
    return 0
  fi
  local trash=$home/.local/share/Trash trashed
  # The latest: on a desktop the Trash may hold those of earlier demonstrations.
  trashed=$(find "$trash/files" -maxdepth 1 -name 'Quorvale Sample*.app' -printf '%C@ %p\n' |
    sort -n | tail -n 1 | cut -d ' ' -f 2-)
  expect "the old version, 1.0, is in the Trash" test "$(version_of "$trashed")" = 1.0
  [ "$elevated" = no ] || return 0
  expect "the Trash knows where it came from" test -s "$trash/info/Quorvale Sample.app.trashinfo"
}

check_bundle() {
  local expected="$scratch/image/Quorvale Sample.app"
  expect "the new version, 2.0, is installed" test "$(version_of "$installed")" = 2.0
  expect "every file, link and mode is as on the disk image" \
    diff -r --no-dereference "$expected" "$installed"
  expect "permissions, owners and times too" test -z \
    "$(rsync -ai --dry-run --delete "$expected/" "$installed/" | grep -v '^\.d\.\.t.*\./$' || true)"
  [ "$destination" = "$installed" ] || return 0
  expect "the application is registered" test -s "$entries/com.quorvale.Sample.desktop"
}

check_image() {
  case "$image_kind-$who" in
    folder-*) missing "a mounted disk image" \
      "the disk image is a folder, and there is nothing to detach" ;;
    loop-user) missing "detaching the disk image" \
      "the disk image is attached still: what root mounted only root detaches" ;;
    *) expect "the disk image is detached" absent mountpoint -q "$mount_point" ;;
  esac
  [ "$image_kind-$who" != loop-root ] || expect "its loop device is free" absent losetup "$image_source"
}

# missing WHAT TEXT: a line for what cannot be shown here, and a word of it for the verdict.
missing() {
  say "  – $2"
  say "$1" >> "$results/without"
}

check_people() {
  [ "$who" != asked ] || return 0
  case "$who-$machine_namespaces-$elevated" in
    root-user-*) missing "another person than you" \
      "the superuser is the one of a user namespace, and you outside of it" ;;
    user-none-yes) missing "a person at the console" "nobody is at the console here, and $user had the rights" ;;
    user-*-no) missing "replacing an old version" \
      "nobody has an administrator's rights to hand down: the application was installed for the first time" ;;
  esac
}

check_relaunch() {
  if [ "$mode" = silent ]; then
    expect "the application was not reopened" absent opened_process
    return
  fi
  expect "the helper's window was shown" test -s "$results/window.png"
  check_log "Launching app..."
  if [ "$destination" != "$installed" ] || [ "$who-$user_id" = root-0 ]; then
    missing "reopening the application" "nothing is reopened as the superuser, nor where nothing was before"
    return
  fi
  expect "the application was reopened" wait_for 10 opened_process
  expect "by $user, not by the superuser" opened_by_console_user
  expect "its window is shown" wait_for 10 window_is_shown "Quorvale Sample"
  take_picture sample "Quorvale Sample" || true
}

check_everything() {
  step "What changed:"
  check_processes
  check_trash
  check_bundle
  check_image
  check_relaunch
  check_people
  check_log "Path is valid."
  [ "$destination" != "$installed" ] || check_log "Trashing old application..."
  [ "$elevated" = no ] || check_log "Auth trashing old application..."
  check_log "File copy successful." "Cleaning up..." "Terminating self..."
}
