# shellcheck shell=bash
# Another Debian release on this machine: a root directory below build/debian/, to build and test in. Source it
# after common.sh.

# What is in the root: what the build, the unit and service tests and the other compiler need.
root_packages=("${run_packages[@]}" "${suite_packages[@]}" clang)

# Prints the release's code name for apt. sid and the like are names already.
code_name() {
  case "$1" in
    12) echo bookworm ;;
    13) echo trixie ;;
    *) echo "$1" ;;
  esac
}

# Runs a command as root of new namespaces, in which it can mount. Nothing of it is left when it ends. An
# ordinary user becomes root there, with the ranges of /etc/subuid and /etc/subgid as the other users.
as_root_apart() {
  local own_users=()
  if [ "$(id -u)" -ne 0 ]; then own_users=(--user --map-root-user --map-auto); fi
  unshare "${own_users[@]}" --mount --pid --fork --kill-child --mount-proc "$@"
}

check_root_namespaces() {
  local message
  if message=$(as_root_apart true 2>&1); then return; fi
  fail "Another release's root needs namespaces, and they cannot be made here: $message
Run it as root, in a container with the right to mount (docker: --security-opt seccomp=unconfined and the AppArmor
equivalent, --cap-add SYS_ADMIN). An ordinary user needs user namespaces (sysctl kernel.unprivileged_userns_clone=1),
the package uidmap, and a range of numbers in /etc/subuid and /etc/subgid."
}

# The machine's own source of Debian packages.
debian_mirror() {
  local mirror
  # shellcheck disable=SC2016  # apt's own variables
  mirror=$(apt-get indextargets --format '$(REPO_URI)|$(ORIGIN)|$(LABEL)' 'Created-By: Packages' |
    sed -n 's/|Debian|Debian$//p' | head -n 1)
  [ -n "$mirror" ] || fail "This machine has no package source of Debian's, from which to take another release."
  echo "$mirror"
}

# make_root RELEASE: makes build/debian/RELEASE/root, or brings the one that is there up to date.
make_root() {
  local place="build/debian/$1" keyring=/usr/share/keyrings/debian-archive-keyring.gpg contents option options=()
  contents="${root_packages[*]}"
  if [ "$(cat "$place/contents" 2>/dev/null)" = "$contents" ]; then
    echo "$place/root is there; to have it made anew, remove $place/contents."
    # Without a network the packages stay as they are.
    in_root "$1" 'apt-get -qq update && DEBIAN_FRONTEND=noninteractive apt-get -qq --yes dist-upgrade >/dev/null' ||
      echo "Its packages could not be brought up to date; it is used as it is."
    return
  fi
  # The machine's ways to fetch packages, a proxy for instance.
  while read -r option; do
    options+=("--aptopt=$option")
  done < <(apt-config dump --no-empty --format '%F "%v";%n' | grep -E '^Acquire::(https?::|Check-Valid-Until )')
  as_root_apart rm -rf "$place"
  mkdir -p "$place"
  as_root_apart mmdebstrap --mode=root --variant=apt --quiet --include="${contents// /,}" "${options[@]}" \
    --aptopt='APT::Install-Recommends "false";' --aptopt='Acquire::Languages "none";' \
    "$(code_name "$1")" "$place/root" "deb [signed-by=$keyring] $(debian_mirror) $(code_name "$1") main" ||
    fail "The root of Debian $1 could not be made; look at the messages above."
  printf '%s\n' "$contents" >"$place/contents"
}

# in_root RELEASE COMMANDS: runs them in the root, in a copy of this project whose build directory is
# build/debian/RELEASE/build.
in_root() {
  local place="$PWD/build/debian/$1"
  mkdir -p "$place/build"
  # shellcheck disable=SC2016  # expanded by the inner shell
  as_root_apart bash -c '
    set -e
    root=$1/root
    mount --bind "$root" "$root"
    mkdir -p "$root/psia"
    mount --bind . "$root/psia"
    mount --bind "$1/build" "$root/psia/build"
    mount -t proc proc "$root/proc"
    mount --rbind /sys "$root/sys"
    mount --rbind /dev "$root/dev"
    cat /etc/resolv.conf >"$root/etc/resolv.conf"
    exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM="${TERM:-dumb}" LC_ALL=C.UTF-8 \
      PYTHONPYCACHEPREFIX=/psia/build/pycache \
      bash -c "trap \"exit 130\" INT; set -e; cd /psia; $2"' bash "$place" "$2"
}
