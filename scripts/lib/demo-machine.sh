# The machine on which the demonstration's update takes place. Sourced by demo-run, whose variables
# it uses.

# A user database with one person more and the superuser's home in the scratch folder, a record of
# that person's session at the console, room for the local library, and the elevator where it is
# installed.
simulate_machine() {
  cp -a /etc "$scratch/etc"
  printf '%s:x:%s:%s::%s:/bin/sh\n' "$user" "$user_id" "$user_id" "$home" >> "$scratch/etc/passwd"
  printf '%s:x:%s:\n' "$user" "$user_id" >> "$scratch/etc/group"
  sed -i "s|^root:\(.*\):/root:|root:\1:$scratch/root:|" "$scratch/etc/passwd"
  echo user_allow_other >> "$scratch/etc/fuse.conf"
  mount --bind "$scratch/etc" /etc
  install -d -o "$user_id" -g "$user_id" "$home"
  mkdir -p "$scratch/root" /run/systemd
  mount -t tmpfs -o mode=755 tmpfs /run/systemd
  mkdir /run/systemd/seats
  printf 'IS_VTCONSOLE=1\nACTIVE=c1\nACTIVE_UID=%s\n' "$user_id" > /run/systemd/seats/seat0
  cover /var/lib
  cover /usr/local/share
  cover /usr/libexec
  mkdir -p /var/lib/quorvale/Library/Logs/Quorvale
  install -D -m 755 "$(dirname "$helper")/qv-elevator" /usr/libexec/quorvale/qv-elevator
  own_applications
}

# The superuser's updates leave the person's applications to the person; an ordinary user's are of
# those that belong to the machine.
own_applications() {
  local owner=0
  [ "$who" != root ] || owner=$user_id
  chown -R "$owner:$owner" "$scratch/Applications" "$scratch/image"
}

# cover FOLDER: what changes there stays in the scratch folder.
cover() {
  local layer=$scratch/cover$1
  mkdir -p "$layer/upper" "$layer/work"
  mount -t overlay overlay -o "lowerdir=$1,upperdir=$layer/upper,workdir=$layer/work" "$1"
}

# The superuser's image is a loop device; a user's is a file system of that user's own, which shows
# itself to root too (allow_root), for it is root who copies from it.
attach_disk_image() {
  mkdir -p "$mount_point"
  if [ "$who" = root ]; then
    truncate -s 64M "$scratch/update.img"
    /sbin/mkfs.ext4 -q -L "Sample 2.0" -d "$scratch/image" "$scratch/update.img"
    mount -o loop,ro "$scratch/update.img" "$mount_point"
  else
    mksquashfs "$scratch/image" "$scratch/update.img" -quiet -no-progress > /dev/null
    [ "$who" = asked ] || chown -R "$user_id:$user_id" "$scratch/Volumes"
    "${as_user[@]}" squashfuse -o allow_root "$scratch/update.img" "$mount_point"
  fi
  image_source=$(findmnt -no SOURCE "$mount_point")
}

start_updaters() {
  local name
  local as=("${as_user[@]}")
  mkdir "$scratch/updater"
  for name in "${updater_names[@]}"; do
    cp /bin/sleep "$scratch/updater/$name"
    "${as[@]}" "$scratch/updater/$name" 300 > /dev/null 2>&1 &
    updaters+=($!)
  done
}

# running PROGRAM: the number of a process that runs it.
running() {
  local process
  for process in /proc/[0-9]*; do
    [ "$(readlink "$process/exe" 2> /dev/null)" = "$1" ] || continue
    basename "$process"
    return 0
  done
  return 1
}
# The user as whom the helper runs, which has hidden everything else of itself from others.
helper_user() { awk '/^Uid:/ { print $2; exit }' "/proc/$(running "$helper")/status" 2> /dev/null | grep .; }
alive() { [ -d "/proc/$1" ] && ! grep -q '^State:.*Z' "/proc/$1/status" 2> /dev/null; }
cannot_write() { ! "${as_user[@]}" test -w "$(dirname "$installed")"; }
