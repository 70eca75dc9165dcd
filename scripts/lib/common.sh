# shellcheck shell=bash disable=SC2034  # the lists are used by those who source this
# What the scripts share. Source it; the script then runs in the project's root directory.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
# Ctrl-C ends the script at once, also when the program that it waits for ends as if it had failed.
trap 'exit 130' INT
export NO_COLOR=1
# Python keeps the compiled modules of the simulated camera there instead of beside them.
export PYTHONPYCACHEPREFIX="$PWD/build/pycache"
# For lighttpd and ip, whose directories are often missing in an ordinary user's PATH.
export PATH="$PATH:/usr/sbin:/sbin"

# The Debian packages, named here only. To build and run the service in the simulated camera:
run_packages=(g++ cmake ninja-build pkg-config libfcgi-dev libsqlite3-dev libxml2-dev uuid-dev
  libgtest-dev python3 lighttpd iproute2 net-tools tzdata curl libfaketime sqlite3)
# and what the unit and service tests need besides:
suite_packages=(mount python3-pytest python3-lxml)
# With --video it also needs
video_packages=(python3-gi gir1.2-gst-rtsp-server-1.0 gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-ugly gstreamer1.0-x gstreamer1.0-libav fonts-dejavu-core)
# and what the other tests and checks need besides:
test_packages=(clang-format clang-tidy shellcheck black flake8 mypy chromium chromium-driver python3-selenium
  nginx-light lighttpd-mod-openssl openssl spawn-fcgi busybox-static systemd dpkg-dev file xsdcxx
  libxerces-c-dev python3-pyftpdlib python3-aiosmtpd ffmpeg "${video_packages[@]}")
# and what scripts/test --debian makes another release's root with:
root_tools=(mmdebstrap debian-archive-keyring uidmap)
# and what scripts/fuzz needs besides:
fuzz_packages=(clang libclang-rt-dev)
# and what scripts/bench measures with.
bench_packages=(python3 valgrind strace wrk)

# Prints what the script is doing now. After `plan` it counts the steps and tells about how long each and the rest take.
planned=()
step_number=0
step() {
  local left=0 seconds
  if [ ${#planned[@]} -eq 0 ]; then
    printf '== %s\n' "$*"
    return
  fi
  for seconds in "${planned[@]:step_number}"; do left=$((left + seconds)); done
  step_number=$((step_number + 1))
  printf '== [%d/%d] %s: about %d s, all that is left %d s\n' \
    "$step_number" ${#planned[@]} "$*" "${planned[step_number - 1]}" "$left"
}

# plan SECONDS...: how long each of the following steps takes on two quiet cores, the first time.
plan() {
  planned=("$@")
}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

# Everything is built in build/. Ends the script with an explanation when that is impossible.
check_build_directory() {
  local foreign home
  if [ ! -w . ]; then
    fail "$PWD cannot be written to, and everything is built in its build/.
Copy the project to a place of your own and start there: cp -r '$PWD' ~/psia"
  fi
  if [ ! -e build ]; then return; fi
  foreign=$(find build -maxdepth 2 ! -type l ! -writable -printf '%p, which belongs to %u' -quit)
  if [ -n "$foreign" ]; then
    fail "This user cannot write to $PWD/$foreign.
Remove the build directory, it is made anew: sudo rm -rf '$PWD/build'    (as root without sudo)"
  fi
  home=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' build/CMakeCache.txt 2>/dev/null || true)
  if [ -n "$home" ] && ! [ "$home" -ef . ]; then
    fail "$PWD/build was made in $home and came here with a copy.
Remove it, it is made anew: rm -rf '$PWD/build'"
  fi
}

# Runs a command that changes build/. ninja and apt-get expect to be alone: a second script waits for the first one.
alone() {
  mkdir -p build
  (
    flock --nonblock 9 || {
      echo "Another script is building in $PWD/build. This one waits until it has finished."
      flock 9
    }
    "$@" 9>&-
  ) 9>build/lock
}

# build PRESET [TARGET...]
build() {
  alone configure_and_build "$@"
}
configure_and_build() {
  local preset=$1 targets=()
  if [ $# -gt 1 ]; then targets=(--target "${@:2}"); fi
  cmake --preset "$preset" -Wno-dev --log-level=WARNING
  cmake --build --preset "$preset" "${targets[@]}"
}

# prepare PACKAGE...: what each script does before anything else.
prepare() {
  check_build_directory
  alone install_packages "$@"
}

# Ends the script when the simulated camera's private namespaces cannot be made.
check_namespaces() {
  local spaces=(--mount --ipc --net)
  command -v unshare >/dev/null || return 0
  if unshare "${spaces[@]}" true 2>/dev/null; then return; fi
  unshare --user --map-root-user "${spaces[@]}" mount -t tmpfs none /usr/local 2>/dev/null ||
    fail "$(cat simulator/namespaces.txt)"
}

# Installs those of the named packages that are missing.
install_packages() {
  local package installed missing=()
  if ! command -v dpkg-query >/dev/null; then
    printf 'This is no Debian system; it is taken for granted that what these packages hold is there:\n  %s\n' "$*"
    check_zone_files
    return
  fi
  installed=$(dpkg-query -W -f '|${Package}|${db:Status-Status}\n' | sed -n 's/|installed$/|/p')
  for package in "$@"; do
    case "$installed" in
      *"|$package|"*) ;;
      *) missing+=("$package") ;;
    esac
  done
  if [ ${#missing[@]} -gt 0 ]; then apt_install "${missing[@]}"; fi
  case " ${missing[*]} " in
    *" lighttpd "*)
      if [ -d /run/systemd/system ]; then
        echo "The package has also started lighttpd's own site on port 80, which is not needed here." \
          "To end it: systemctl disable --now lighttpd"
      fi
      ;;
  esac
  check_zone_files
}

apt_install() {
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "Packages are missing, and there is no sudo to install them with. As root:
  apt-get update && apt-get install --no-install-recommends $*"
    as_root=(sudo)
  fi
  echo "Installing $*"
  if ! "${as_root[@]}" apt-get update ||
    ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install --yes --no-install-recommends "$@"; then
    fail "The packages could not be installed. Look at the messages above, or as root try:
  apt-get update && apt-get install --no-install-recommends $*"
  fi
}

# The camera leaves the factory in the zone EST5EDT. Debian 13 and Ubuntu 24.04 have moved the zones with such names to a
# package of their own; in older releases they come with tzdata.
check_zone_files() {
  if [ -e /usr/share/zoneinfo/EST5EDT ]; then return; fi
  echo "There is no /usr/share/zoneinfo/EST5EDT, the zone of the simulated camera's factory settings."
  command -v apt-get >/dev/null ||
    fail "Install the package of your system that has the time zones with old names, such as tzdata-legacy."
  apt_install tzdata-legacy
}
