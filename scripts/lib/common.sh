# What the scripts share: progress, packages, builds. Sourced by bash with the repository as the
# working folder.

started=$SECONDS
say() { printf '%s\n' "$*"; }
. scripts/lib/surroundings.sh
. scripts/lib/verdict.sh

# explain_if_asked WORD...: with --help among the words shows what the head of the script says, and
# ends it before anything is installed or built.
explain_if_asked() {
  local word
  for word in "$@"; do
    case "$word" in -h | --help)
      sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/$(basename "$0")"
      exit 0 ;;
    esac
  done
}
explain_if_asked "$@"

# as_root PURPOSE COMMAND...: runs a command as root; an ordinary user is told for what, once.
purposes_told=
as_root() {
  local purpose=$1
  shift
  if [ "$(id -u)" -eq 0 ]; then "$@"; return; fi
  command -v sudo > /dev/null || fail "Please run this as root, or install sudo: needed $purpose."
  [[ "$purposes_told" == *"|$purpose|"* ]] || say "Using sudo $purpose."
  purposes_told+="|$purpose|"
  sudo "$@"
}

# project_files PATTERN...: the project's files whose paths match, one a line, whether or not this is
# a git repository, or one that git trusts; fails when there are none.
project_files() {
  local pattern
  for pattern in "$@"; do
    find . \( -path ./build -o -path ./.git \) -prune -o -type f -path "./$pattern" -printf '%P\n'
  done | sort | grep .
}

build_packages="build-essential cmake ninja-build pkg-config libglib2.0-dev libgtk-3-dev
  libplist-dev libsystemd-dev libpolkit-agent-1-dev libzip-dev"
test_packages="libgtest-dev libgmock-dev dbus-daemon dbus-bin psmisc e2fsprogs mount util-linux xvfb openbox
  xdotool x11-utils imagemagick attr acl rsync desktop-file-utils libglib2.0-bin gvfs xdg-utils
  polkitd pkexec passwd locales squashfs-tools squashfuse fuse3 fuse2fs fuseiso genisoimage ntfs-3g
  binutils xclip unzip zip libarchive-tools p7zip-full python3 fonts-dejavu-core
  adwaita-icon-theme udev udisks2 sway grim at-spi2-core"
demo_packages="psmisc e2fsprogs squashfs-tools squashfuse fuse3 mount util-linux passwd xvfb openbox
  xdotool x11-utils imagemagick rsync fonts-dejavu-core adwaita-icon-theme"
package_packages="dpkg-dev file gzip libxml2-utils util-linux"
lint_packages="clang clang-format clang-tidy"
fuzz_packages="clang"
benchmark_packages="libbenchmark-dev libspdlog-dev libxdamage-dev"

# install_packages NAME...: installs those Debian packages that are missing.
install_packages() {
  local package
  local missing=()
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2> /dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  step "Installing ${#missing[@]} missing packages: ${missing[*]}"
  quietly fetch_packages "${missing[@]}" || fail "Packages cannot be installed."
}

# Lists that cannot be fetched are only warned of: what follows fails without them.
fetch_packages() {
  apt_get update -qq && apt_get install -y -qq --no-install-recommends "$@"
}

# Another run of it may hold its lock for a while.
apt_get() {
  as_root "to install packages" env DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=300 "$@"
}

# build PRESET [TARGET...]: configures and builds; shows each step as one changing line. Warnings are
# errors when QV_WARNINGS_AS_ERRORS=ON says so, as .ci/run does: a stranger's compiler may be younger
# than this code and know warnings that nobody has seen yet.
build() {
  local preset=$1
  shift
  step "Building (${preset})"
  quietly cmake --preset "$preset" -D QV_WARNINGS_AS_ERRORS="${QV_WARNINGS_AS_ERRORS:-OFF}" \
    || fail "CMake finds something amiss."
  cmake --build "build/$preset" ${1:+--target "$@"} || fail "The compiler says above what is amiss."
}

# make_scratch NAME: sets `scratch` to a fresh folder that everybody may enter.
make_scratch() {
  local base=${TMPDIR:-/tmp}
  reachable_by_everybody "$base" || base=/tmp
  scratch=$(mktemp -d "$base/quorvale-$1.XXXXXX")
  chmod 755 "$scratch"
}

# clear_scratch: of the scratch folder only the results stay, and nothing where there are none.
clear_scratch() {
  [ -d "${scratch:-}" ] || return 0
  # The work folders of overlays are closed to their owner too.
  chmod -R u+rwX "$scratch" 2> /dev/null || true
  if [ -O "$scratch" ] && find "$scratch" ! -user "$(id -u)" | grep -q .; then
    as_root "to clear the scratch folder" chown -R "$(id -u)" "$scratch"
  fi
  find "$scratch" -mindepth 1 -maxdepth 1 ! -name results -exec rm -rf {} +
  find "$scratch" -maxdepth 1 -empty -delete
  if [ -d "$scratch" ]; then
    say
    say "What stays is in $scratch/results"
  fi
  scratch=
}

# The superuser's home is another one in the tests' simulated machines.
reachable_by_everybody() {
  case "$1" in /root | /root/*) return 1 ;; esac
  local folder=$1
  while [ "$folder" != / ]; do
    [ $((0$(stat -c %a "$folder") & 1)) -eq 1 ] || return 1
    folder=$(dirname "$folder")
  done
}

# work_where_everybody_may: goes on in a copy of this checkout when it is in somebody's private
# folder. Only what has changed is copied and built again.
work_where_everybody_may() {
  ! reachable_by_everybody "$PWD" || return 0
  local copy
  copy=/var/tmp/quorvale-update-helper-$(id -u)
  mkdir -p -m 755 "$copy"
  { [ -O "$copy" ] && [ ! -L "$copy" ]; } || fail "$copy belongs to somebody else."
  say "Other users cannot enter $PWD, and the tests run as other users too:"
  say "working on a copy in $copy."
  rsync -a --delete --exclude=/build --exclude=/.git "$PWD/" "$copy/"
  cd "$copy"
}
