# What demonstrations change of the machine inside private mount namespaces: people, folders, devices.
# Sourced as root there, by bash, with `scratch` set; all changes stay in the scratch folder.

# free_id: the first number from 61001 on that is neither a person's nor a group's nor that of a
# process. What is above 65,535 is nobody's number in a container of an ordinary user.
free_id() {
  local id
  for ((id = 61001; id < 61999; id++)); do
    getent passwd "$id" > /dev/null || getent group "$id" > /dev/null || has_processes "$id" || break
  done
  echo "$id"
}
has_processes() { find /proc -maxdepth 1 -uid "$1" 2> /dev/null | grep -q .; }

# simulate_person NAME ID HOME: a user database where that person comes first and has no namesakes,
# and where the superuser's home is in the scratch folder. No other database is asked.
simulate_person() {
  local name=$1 id=$2 home=$3 etc=$scratch/etc
  cp -a /etc "$etc" 2> /dev/null || true
  [ -s "$etc/passwd" ] && [ -s "$etc/group" ] || { say "/etc cannot be copied."; return 1; }
  put_first "$etc/passwd" "$name:x:$id:$id::$home:/bin/sh"
  put_first "$etc/group" "$name:x:$id:"
  sed -i "s|^root:\(.*\):/root:|root:\1:$scratch/root:|" "$etc/passwd"
  sed -i -E 's/^(passwd|group|shadow|initgroups):.*/\1: files/' "$etc/nsswitch.conf" 2> /dev/null || true
  mount --bind "$etc" /etc
  [ ! -d /run/nscd ] || mount -t tmpfs tmpfs /run/nscd
  mkdir -p "$scratch/root"
  [ "$id" -eq 0 ] || install -d -o "$id" -g "$id" "$home"
}

# put_first FILE LINE: without the lines that have its name or its number.
put_first() {
  local file=$1 line=$2
  awk -F : -v line="$line" '
    BEGIN { split(line, person, ":"); print line }
    $1 != person[1] && $3 != person[3]' "$file" > "$file.first"
  cat "$file.first" > "$file"
  rm "$file.first"
}

# cover FOLDER: what changes there stays in the scratch folder. Where no overlay can be had an empty
# folder takes its place.
cover() {
  local layer=$scratch/cover$1
  [ -d "$1" ] || { say "There is no $1 to cover."; exit 1; }
  if [ "$machine_overlay" = tmpfs ] && ! mountpoint -q "$scratch/cover"; then
    mkdir -p "$scratch/cover"
    mount -t tmpfs -o mode=755 tmpfs "$scratch/cover"
  fi
  mkdir -p "$layer/upper" "$layer/work"
  if [ "$machine_overlay" = none ]; then
    mount --bind "$layer/upper" "$1"
  else
    mount -t overlay overlay -o "lowerdir=$1,upperdir=$layer/upper,workdir=$layer/work" "$1"
  fi
}

# A display of our own leaves its lock and its socket in /tmp, wherever TMPDIR is: in one that is in the
# scratch folder, which itself stays where it is.
private_tmp() {
  local here
  exec {here}< "$scratch"
  mkdir -m 1777 "$scratch/tmp"
  mount --bind "$scratch/tmp" /tmp
  mkdir -p "$scratch"
  # By its descriptor, which must not be taken back for the name that it had.
  [ -e "$scratch/tmp" ] || mount --no-canonicalize --bind "/proc/self/fd/$here" "$scratch"
  exec {here}<&-
}

# Where /dev/fuse is closed or missing, the namespace gets a node that everybody may open.
open_fuse() {
  [ "$machine_fuse" = own ] || return 0
  mkdir "$scratch/devices"
  mount -t tmpfs -o mode=755 tmpfs "$scratch/devices"
  mknod -m 666 "$scratch/devices/fuse" c 10 229
  if [ -e /dev/fuse ]; then
    mount --bind "$scratch/devices/fuse" /dev/fuse
  else
    private_devices
  fi
}

# A folder of device nodes where one can be added: the old ones are bound into it.
private_devices() {
  local old
  for old in /dev/*; do
    if [ -L "$old" ]; then
      ln -s "$(readlink "$old")" "$scratch/devices/${old##*/}"
    elif [ -d "$old" ]; then
      mkdir "$scratch/devices/${old##*/}"
      mount --rbind "$old" "$scratch/devices/${old##*/}"
    else
      touch "$scratch/devices/${old##*/}"
      mount --bind "$old" "$scratch/devices/${old##*/}"
    fi
  done
  mount --rbind "$scratch/devices" /dev
}
