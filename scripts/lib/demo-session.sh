# What scripts/demo-host and scripts/demo-crash share: a person who runs a part of them. Sourced after
# common.sh and machine.sh.

# run_as_person SCRIPT: the script, in scripts/lib, with the scratch folder as its
# argument. An ordinary user runs it on the present display; as root, or without a display, it has an X
# server of its own. Root hands it to a simulated person in a private namespace, or to nobody where
# there is none. It has three minutes, many times what it takes.
run_as_person() {
  local script=$scratch/programs/$1
  local environment=(timeout --kill-after=10 180
    env -i PATH="/usr/sbin:/usr/bin:/sbin:/bin" LANG=C.UTF-8)
  if [ "$(id -u)" -ne 0 ]; then
    "${environment[@]}" ${DISPLAY:+DISPLAY="$DISPLAY"} ${XAUTHORITY:+XAUTHORITY="$XAUTHORITY"} \
      HOME="$scratch/home" "$script" "$scratch"
    return
  fi
  in_namespaces "${environment[@]}" machine_namespaces="$machine_namespaces" machine_overlay=none \
    machine_fuse=none scripts/lib/become-person "$scratch" "$script" "$scratch"
}
