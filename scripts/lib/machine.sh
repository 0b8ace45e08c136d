# What this machine allows, looked up before anything is installed or built. Sourced by bash after
# common.sh. look_at_machine sets, each to the highest step that really works here:
#
#   machine_rights      root | sudo | none      whether commands can be run as root
#   machine_namespaces  root | user | none      private mount and process namespaces, with whose rights
#   machine_fuse        open | own | none       /dev/fuse as it is, a node in a private /dev, or no FUSE
#   machine_loop        yes | no                whether root can attach an image to a loop device
#   machine_overlay     scratch | tmpfs | none  what the changes of an overlay can be kept on
#   machine_display     present | private       the display of the one who watches, or an X server

machine_library=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
machine_unshare=(unshare --mount --propagation private --pid --fork --kill-child --mount-proc)

look_at_machine() {
  look_at_rights
  look_at_namespaces
  machine_fuse=none machine_loop=no machine_overlay=none
  look_at_devices
  machine_display=private
  [ -z "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] || machine_display=present
}

look_at_rights() {
  machine_rights=none
  if [ "$(id -u)" -eq 0 ]; then
    machine_rights=root
  elif command -v sudo > /dev/null && as_root "to see what this machine allows" true; then
    machine_rights=sudo
  fi
}

look_at_namespaces() {
  for machine_namespaces in root user none; do
    in_namespaces true 2> /dev/null && return
  done
}

# The probe prints assignments of the variables above.
look_at_devices() {
  local found
  found=$(in_namespaces "$machine_library/machine-probe" "${TMPDIR:-/tmp}" 2> /dev/null) || true
  while IFS='=' read -r name value; do
    case "$name" in machine_fuse | machine_loop | machine_overlay) printf -v "$name" %s "$value" ;; esac
  done <<< "$found"
}

# in_namespaces COMMAND...: runs it in private mount and process namespaces, as root there; where
# there are none, as it is.
in_namespaces() {
  case "$machine_namespaces" in
    root)
      [ "$machine_rights" != none ] || return 1
      as_root "for private namespaces" "${machine_unshare[@]}" "$@" ;;
    user)
      [ "$(id -u)" -ne 0 ] || return 1
      "${machine_unshare[@]}" --user --map-root-user "$@" ;;
    none) "$@" ;;
  esac
}

# One line for a step that is there, and for one that is not three: what it is, what it takes away,
# and how to get it.
machine_has() { say "  ✓ $1"; }
machine_lacks() { say "  – $1"; say "      lost:      $2"; say "      to get it: $3"; }

show_machine() {
  step "What this machine allows:"
  show_rights
  show_namespaces
  show_devices
  case "$machine_display" in
    present) machine_has "a display: the one you are looking at" ;;
    private) machine_has "a display: a private X server" ;;
  esac
}

show_rights() {
  case "$machine_rights" in
    root) machine_has "root's rights" ;;
    sudo) machine_has "root's rights, by sudo" ;;
    none) machine_lacks "no root's rights" "what needs an administrator, and missing packages" \
      "be root, or have sudo" ;;
  esac
}

show_namespaces() {
  case "$machine_namespaces" in
    root) machine_has "mount and process namespaces of its own" ;;
    user) machine_lacks "namespaces of its own in a user namespace only" \
      "other people than you and what needs root" "be root, or have sudo" ;;
    none) machine_lacks "no namespaces of its own" \
      "simulated machines and people, and whatever is mounted" \
      "a container with CAP_SYS_ADMIN and no seccomp filter, or a whole machine" ;;
  esac
}

show_devices() {
  case "$machine_fuse" in
    open) machine_has "FUSE, for an ordinary user's disk images" ;;
    own) machine_has "FUSE, with a device node of its own, for /dev/fuse is closed or missing" ;;
    none) machine_lacks "no FUSE" "an ordinary user's disk images" "load the module fuse, open /dev/fuse" ;;
  esac
  case "$machine_loop" in
    yes) machine_has "loop devices, for the superuser's disk images" ;;
    no) machine_lacks "no loop device" "the superuser's disk images" "be root, with the module loop" ;;
  esac
  case "$machine_overlay" in
    scratch) machine_has "overlays, under which the machine stays as it is" ;;
    tmpfs) machine_has "overlays on a tmpfs, for ${TMPDIR:-/tmp} is an overlay itself" ;;
    none) [ "$machine_namespaces" = none ] || machine_lacks "no overlays" \
      "simulated machines" "a kernel with overlayfs" ;;
  esac
}
