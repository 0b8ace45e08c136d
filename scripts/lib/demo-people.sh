# Whose update the demonstration's is, and where that person and the helper keep things. Sourced by
# demo-run after private-machine.sh.

# Sets user, user_id, group_id, home, helper, log, entries; as_user, the words before a command that
# runs as that person; and elevated: whether an administrator's rights are handed down to the helper.
choose_people() {
  elevated=no as_user=()
  helper=$scratch/QVUpdateHelper.app/$bundle
  case "$who-$machine_namespaces-$(id -u)" in
    asked-*) present_person "$HOME"; elevated=yes as_user=(env)
      helper=/usr/libexec/quorvale/QVUpdateHelper.app/$bundle ;;
    root-user-*) present_person "$scratch/root" ;;
    root-*) simulated_person ;;
    user-root-*) simulated_person; elevated=yes ;;
    user-none-0) existing_person; elevated=yes ;;
    user-*) present_person "$scratch/home"; as_user=(env) ;;
  esac
  [ "$who" = root ] || [ "${#as_user[@]}" -gt 0 ] || become_that_person
  choose_places
}

# Names that no machine has; and who has them all the same is hidden.
simulated_person() {
  user=qv-demo-anna
  user_id=$(free_id)
  group_id=$user_id
  home=$scratch/home/$user
}

present_person() {
  user=$(id -un)
  user_id=$(id -u)
  group_id=$(id -g)
  home=$1
}

# Somebody to whom nothing on any machine belongs.
existing_person() {
  user=nobody
  user_id=$(id -u nobody)
  group_id=$(id -g nobody)
  home=$scratch/home/$user
}

become_that_person() {
  as_user=(/usr/bin/setpriv "--reuid=$user_id" "--regid=$group_id" --clear-groups
    env "HOME=$home" "USER=$user" "XAUTHORITY=$home/.Xauthority")
}

# What belongs to a person is registered for that person, whoever installs it.
choose_places() {
  entries=$home/.local/share/applications
  log=$home/Library/Logs/Quorvale/QVUpdateHelper.1.log
  [ "$who" != root ] || log=/var/lib/quorvale/Library/Logs/Quorvale/QVUpdateHelper.1.log
}

helpers_role() {
  if [ "$who" = root ]; then echo superuser; else echo "$user, an ordinary user"; fi
}

# as_helper COMMAND...: runs it as whom the helper runs, with the rights that it has. The updater
# becomes the helper's parent and hands its session down to it.
as_helper() {
  case "$who-$elevated" in
    root-*) HOME=$scratch/root "$@" ;;
    user-yes) "$scratch/QuorvaleUpdater" "${as_user[@]}" "$@" ;;
    *) HOME=$home "$@" ;;
  esac
}

# The present display when there is one, else a private X server with a window manager. The simulated
# person may use the display of the one who watches.
open_display() {
  if [ "$machine_display" = private ]; then
    open_private_display 800x500
  elif [ "$user_id" -ne "$(id -u)" ] && [ -s "${XAUTHORITY:-}" ]; then
    install -m 600 -o "$user_id" -g "$group_id" "$XAUTHORITY" "$home/.Xauthority"
  fi
}
