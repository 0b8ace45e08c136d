# The machine on which the demonstration's update takes place. Sourced by demo-run, whose variables
# it uses, after private-machine.sh.

# A user database with one person more, a record of that person's session at the console, room for the
# local library, and the elevator where it is installed.
simulate_machine() {
  simulate_person "$user" "$user_id" "$home"
  echo user_allow_other >> "$scratch/etc/fuse.conf"
  simulate_console
  open_fuse
  cover /var/lib
  cover /usr/local/share
  cover /usr/libexec
  mkdir -p /var/lib/quorvale/Library/Logs/Quorvale
  install -D -m 755 "$(dirname "$helper")/qv-elevator" /usr/libexec/quorvale/qv-elevator
  [ "$machine_display" = present ] || private_tmp
}

# Where no service was ever started there is no /run/systemd, and none is left behind.
simulate_console() {
  local records=/run/systemd
  [ -d "$records" ] || records=/run
  mount -t tmpfs -o mode=755 tmpfs "$records"
  mkdir -p /run/systemd/seats
  printf 'IS_VTCONSOLE=1\nACTIVE=c1\nACTIVE_UID=%s\n' "$user_id" > /run/systemd/seats/seat0
}

# Without a machine of its own the update takes place among the people who are there; root plays the
# updater beside an elevator, and the helper is an ordinary person's.
borrow_machine() {
  refuse_namesakes
  mkdir -p "$home"
  if [ "$elevated" = yes ]; then
    cp -a "$(dirname "$helper")/qv-elevator" "$scratch/"
    chown "$user_id:$group_id" "$home"
  fi
}

# Without an administrator nothing that is there can be replaced: the application is installed for the
# first time, and the folder that it goes into is not there either, for it becomes the bundle itself.
forget_old_version() {
  rm -rf "$installed"
  destination=$installed/$(basename "$installed")
}

# The helper ends the updater's processes by their names, and here it would meet everybody's.
refuse_namesakes() {
  local name
  for name in "${updater_names[@]}"; do
    ! grep -qxF "${name:0:15}" /proc/[0-9]*/comm 2> /dev/null || {
      say "A process called \"$name\" runs on this machine, and the helper would end it."
      exit 1
    }
  done
}

# The superuser's updates, and those without an administrator's rights, leave the person's
# applications to the person; others are of those that belong to the machine.
own_applications() {
  [ "$(id -u)" -eq 0 ] || return 0
  local owner="0:0"
  [ "$elevated" = yes ] || owner=$user_id:$group_id
  chown -R "$owner" "$scratch/Applications" "$scratch/image"
}

# The superuser's image is a loop device; a user's is a file system of that user's own, which shows
# itself to root too (allow_root), for it is root who copies from it. `image_kind` says what it became.
attach_disk_image() {
  mkdir -p "$mount_point"
  case "$who-$machine_loop-$machine_fuse" in
    root-yes-*) attach_loop_device ;;
    user-yes-none) attach_loop_device ;;
    *-none) ;;
    *) attach_own_file_system || say "This file system could not be mounted." ;;
  esac
  if mountpoint -q "$mount_point"; then
    image_source=$(findmnt -no SOURCE "$mount_point")
  else
    image_kind=folder
    cp -a "$scratch/image/." "$mount_point/"
    image_source="a folder, for nothing can be mounted here"
  fi
}

attach_loop_device() {
  image_kind=loop
  truncate -s 64M "$scratch/update.img"
  /sbin/mkfs.ext4 -q -L "Sample 2.0" -d "$scratch/image" "$scratch/update.img"
  mount -o loop,ro "$scratch/update.img" "$mount_point"
}

attach_own_file_system() {
  local options=()
  image_kind=own
  mksquashfs "$scratch/image" "$scratch/update.img" -quiet -no-progress > /dev/null
  [ "$(id -u)" -ne 0 ] || chown -R "$user_id:$group_id" "$scratch/Volumes"
  [ "$elevated" != yes ] || options=(-o allow_root)
  "${as_user[@]}" timeout 20 squashfuse "${options[@]}" "$scratch/update.img" "$mount_point" 2> /dev/null
}

# On a borrowed machine nothing ends by itself: neither what was started nor what was reopened.
end_what_was_begun() {
  local process
  for process in "${updaters[@]}" "$(opened_process)"; do
    [ -z "$process" ] || kill "$process" 2> /dev/null || true
  done
  close_private_display
  ! mountpoint -q "$mount_point" || "${as_user[@]}" fusermount3 -u -z "$mount_point" 2> /dev/null ||
    umount -l "$mount_point" 2> /dev/null || true
}

start_updaters() {
  local name
  mkdir "$scratch/updater"
  for name in "${updater_names[@]}"; do
    cp /bin/sleep "$scratch/updater/$name"
    "${as_user[@]}" "$scratch/updater/$name" 300 > /dev/null 2>&1 &
    updaters+=($!)
  done
}

# running PROGRAM: the number of a process that runs it. Its command line says so also where the link
# to the program is closed, as the helper's is to a container's root.
running() {
  local process program
  for process in /proc/[0-9]*; do
    { IFS= read -r -d '' program < "$process/cmdline"; } 2> /dev/null || continue
    [ "$program" = "$1" ] || continue
    basename "$process"
    return 0
  done
  return 1
}
# The user as whom the helper runs, which has hidden everything else of itself from others.
helper_user() { user_of "$(running "$helper")"; }
user_of() { awk '/^Uid:/ { print $2; exit }' "/proc/$1/status" 2> /dev/null | grep .; }
cannot_write() { ! "${as_user[@]}" test -w "$(dirname "$installed")"; }
