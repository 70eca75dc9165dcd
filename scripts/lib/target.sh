# shellcheck shell=bash
# The device's libraries on this machine: a sysroot below build/ from Debian's packages. Source it after common.sh.

# The packages with which the service and its unit tests are compiled and linked, and with which qemu runs them.
# libgtest-dev's own libraries are linked into the tests.
sysroot_packages=(libfcgi-dev libsqlite3-dev libxml2-dev uuid-dev libgtest-dev libstdc++6 libgcc-s1)

# apt-get that keeps everything in build/sysroot/ARCH.apt: the machine's package lists, cache and architectures stay as
# they are. Package sources and keys are the machine's.
target_apt() {
  apt-get -c "build/sysroot/$1.apt/apt.conf" "${@:2}"
}

prepare_target_apt() {
  local state="$PWD/build/sysroot/$1.apt"
  mkdir -p "$state/lists/partial" "$state/cache/archives/partial"
  : >"$state/status"
  cat >"$state/apt.conf" <<END
#clear APT::Architectures;
#clear APT::Update;
#clear DPkg;
APT::Architecture "$1";
APT::Architectures { "$1"; };
APT::Install-Recommends "false";
APT::Sandbox::User "root";
Acquire::Languages "none";
Debug::NoLocking "true";
Dir::State "$state";
Dir::State::status "$state/status";
Dir::Cache "$state/cache";
END
}

# make_sysroot ARCH: makes build/sysroot/ARCH, unless it was made for the same packages before.
make_sysroot() {
  local sysroot="build/sysroot/$1" contents archive archives count=0
  contents="${sysroot_packages[*]}"
  if [ "$(cat "$sysroot.contents" 2>/dev/null)" = "$contents" ]; then
    echo "build/sysroot/$1 is there; to have it made anew: rm -r build/sysroot"
    return
  fi
  command -v apt-get >/dev/null ||
    fail "The sysroot is made of Debian's packages, and there is no apt-get. docs/porting.md tells how to use another one."
  rm -rf "$sysroot" "$sysroot.apt" "$sysroot.contents"
  prepare_target_apt "$1"
  # A package list may fail to arrive; the download of the packages tells whether it matters.
  target_apt "$1" update || true
  target_apt "$1" install --yes --download-only "${sysroot_packages[@]}" ||
    fail "The packages for $1 could not be downloaded; look at the messages above. The machine's package sources must
be Debian's and not be limited to other architectures (an [arch=...] in /etc/apt/sources.list)."
  archives=("$sysroot.apt/cache/archives"/*.deb)
  mkdir -p "$sysroot"
  for archive in "${archives[@]}"; do
    count=$((count + 1))
    printf '[%d/%d] %s\n' "$count" "${#archives[@]}" "$(basename "$archive" .deb)"
    dpkg -x "$archive" "$sysroot"
  done
  # qemu would show these to the service in place of the machine's own.
  rm -rf "${sysroot:?}/etc" "$sysroot.apt"
  printf '%s\n' "$contents" >"$sysroot.contents"
}

# write_wrapper ARCH: writes build/ARCH/psia-under-qemu, which runs the device's psia.fcgi on this machine.
write_wrapper() {
  cat >"build/$1/psia-under-qemu" <<END
#!/bin/sh
exec qemu-arm-static -L '$PWD/build/sysroot/$1' '$PWD/build/$1/psia.fcgi' "\$@"
END
  chmod +x "build/$1/psia-under-qemu"
}

# Whether the sysroot's SQLite uses 64-bit times.
target_sqlite_goes_beyond_2038() {
  objdump -T "build/sysroot/$1"/usr/lib/*/libsqlite3.so.0 | grep -q time64
}
