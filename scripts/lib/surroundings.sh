# What the scripts want of their surroundings, whoever calls them from where. Sourced by common.sh.

umask 022
export LANG=C.UTF-8 LC_ALL=C.UTF-8
# A relative folder that is searched for `cd` would print where it went.
unset CDPATH

# Programs take the number of a closed standard input for the next file that they open.
{ true <&0; } 2> /dev/null || exec < /dev/null

# A home that is not there is asked for by programs that only keep a cache in it.
[ -n "${HOME:-}" ] || HOME=$(getent passwd "$(id -u)" | cut -d : -f 6)
export HOME=${HOME:-/}

# A temporary folder that is none, or relative, serves nobody. Links in its name go: what programs are
# asked where they are, they answer without.
if [ -n "${TMPDIR:-}" ]; then
  if [ -d "$TMPDIR" ] && [ -w "$TMPDIR" ]; then
    TMPDIR=$(realpath -- "$TMPDIR")
  else
    printf 'TMPDIR is no folder that can be written: using /tmp.\n'
    TMPDIR=/tmp
  fi
  export TMPDIR
fi

# As many open files as may be had without asking anybody.
ulimit -Sn "$(ulimit -Hn)" 2> /dev/null || true
