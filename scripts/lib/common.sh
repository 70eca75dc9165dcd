# shellcheck shell=bash disable=SC2034  # the lists are used by those who source this
# What the scripts share. To be sourced; the script then runs in the project's root directory.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
export NO_COLOR=1
# lighttpd and ip are there, which an ordinary user's PATH often leaves out.
export PATH="$PATH:/usr/sbin:/sbin"

# The Debian packages, named here only. To build and run the service in the simulated camera:
run_packages=(g++ cmake ninja-build pkg-config libfcgi-dev libsqlite3-dev libxml2-dev uuid-dev
  libgtest-dev lighttpd iproute2 net-tools tzdata curl)
# and what the tests and checks need besides:
test_packages=(clang-format clang-tidy shellcheck)

# What the script is doing now.
step() {
  printf '== %s\n' "$*"
}

fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

# Installs those of the named packages that are missing.
install_packages() {
  local package as_root=() missing=()
  if ! command -v dpkg-query >/dev/null; then
    printf 'This is no Debian system; it is taken for granted that what these packages hold is there:\n  %s\n' "$*"
    return
  fi
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
  done
  if [ ${#missing[@]} -eq 0 ]; then return; fi

  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "Packages are missing. As root: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi
  step "Installing ${missing[*]}"
  if ! "${as_root[@]}" apt-get update ||
    ! "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install --yes --no-install-recommends "${missing[@]}"; then
    fail "The packages could not be installed. Look at the messages above, or as root try:
  apt-get update && apt-get install ${missing[*]}"
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
