# shellcheck shell=bash disable=SC2034  # the lists are used by those who source this
# What the scripts share. To be sourced; the script then runs in the project's root directory.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
export NO_COLOR=1
# lighttpd and ip are there, which an ordinary user's PATH often leaves out.
export PATH="$PATH:/usr/sbin:/sbin"

# The Debian packages, named here only. To build and run the service in the simulated camera:
run_packages=(g++ cmake ninja-build pkg-config libfcgi-dev libsqlite3-dev libxml2-dev uuid-dev
  libgtest-dev lighttpd iproute2 net-tools tzdata curl libfaketime sqlite3)
# and what the tests and checks need besides:
test_packages=(clang-format clang-tidy shellcheck python3 chromium chromium-driver
  python3-jsonschema nginx-light lighttpd-mod-openssl openssl spawn-fcgi busybox-static systemd dpkg-dev file)
# and what scripts/fuzz needs besides:
fuzz_packages=(clang libclang-rt-14-dev)
# and what scripts/bench measures with.
bench_packages=(python3 valgrind strace wrk)

# What the script is doing now. A script that sets `steps`, their number, also has them counted and timed.
steps=0
step_number=0
step() {
  end_step
  if [ "$steps" -gt 0 ]; then
    step_number=$((step_number + 1))
    printf '== [%d/%d] %s\n' "$step_number" "$steps" "$*"
  else
    printf '== %s\n' "$*"
  fi
  step_started=$SECONDS
}

end_step() {
  if [ "$steps" -gt 0 ] && [ "$step_number" -gt 0 ]; then printf '   %d s\n' $((SECONDS - step_started)); fi
}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

# Everything is built in build/: says so in words when that cannot be.
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
check_build_directory

# Installs those of the named packages that are missing.
install_packages() {
  local package installed as_root=() missing=()
  if ! command -v dpkg-query >/dev/null; then
    printf 'This is no Debian system; it is taken for granted that what these packages hold is there:\n  %s\n' "$*"
    return
  fi
  installed=$(dpkg-query -W -f '|${Package}|${db:Status-Status}\n' | sed -n 's/|installed$/|/p')
  for package in "$@"; do
    case "$installed" in
      *"|$package|"*) ;;
      *) missing+=("$package") ;;
    esac
  done
  if [ ${#missing[@]} -eq 0 ]; then return; fi

  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "Packages are missing, and there is no sudo to install them with. As root:
  apt-get update && apt-get install --no-install-recommends ${missing[*]}"
    as_root=(sudo)
  fi
  step "Installing ${missing[*]}"
  if ! "${as_root[@]}" apt-get update ||
    ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install --yes --no-install-recommends "${missing[@]}"; then
    fail "The packages could not be installed. Look at the messages above, or as root try:
  apt-get update && apt-get install --no-install-recommends ${missing[*]}"
  fi
  case " ${missing[*]} " in
    *" lighttpd "*)
      if [ -d /run/systemd/system ]; then
        echo "The package has also started lighttpd's own site on port 80, which is not needed here." \
          "To end it: systemctl disable --now lighttpd"
      fi
      ;;
  esac
}
