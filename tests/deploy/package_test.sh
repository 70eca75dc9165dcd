#!/bin/bash
# Packs the build in the build directory $1 and looks into the packages.
set -euo pipefail
# shellcheck source=tests/deploy/checks.sh
. "$(dirname "$0")/checks.sh"
documents=$(cd "$(dirname "$0")/../../docs" && pwd)

cd "$1"
rm -rf package-test
mkdir -p package-test/deb package-test/tgz package-test/own
# With a umask that would lock /usr, if the packages had its modes.
(umask 077 && wanted "cpack makes the packages" cpack -B package-test)
cd package-test
architecture=$(dpkg --print-architecture)
wanted "the service's .deb can be unpacked" dpkg-deb --extract "psia_1.0_$architecture.deb" deb
wanted "the service's tarball can be unpacked" tar -C own -xf "psia-1.0-Linux-$architecture.tar.gz"

for file in libexec/psia/psia.fcgi libexec/psia/psia-rights share/psia/lighttpd.conf share/psia/nginx.conf \
  share/psia/psia.init lib/systemd/system/psia.socket lib/systemd/system/psia.service; do
  wanted "/usr/$file, which the documents name, is in the package and not empty" test -s "deb/usr/$file"
done
wanted "the .deb and the tarball hold the same files" diff -r deb own
modes() { (cd "$1" && find . -mindepth 2 -printf '%P %m\n' | sort); }
same "files have the same modes in the .deb and in the tarball" "$(modes deb)" "$(modes own)"
same "every directory has mode 755" "" "$(find own -mindepth 1 -type d ! -perm 755)"

# A tarball that an ordinary user packed, unpacked by the documented command, with BusyBox, too.
tar -C own --owner=12345 --group=12345 -czf psia-own.tar.gz usr
command=$(sed -n 's|^ *\(tar .*\) psia-\*\.tar\.gz .*|\1|p' "$documents/installation.md" | head -n 1)
for tar in tar "busybox tar"; do
  rm -rf tgz/usr
  # shellcheck disable=SC2086  # a command and its options
  wanted "the documented command unpacks the tarball with $tar" \
    ${command/#tar -C \//$tar -C tgz/} psia-own.tar.gz
  same "unpacked with $tar, everything belongs to the user who unpacks" "" \
    "$(find tgz -mindepth 1 ! -user "$(id -un)")"
done

depends=$(dpkg-deb --field "psia_1.0_$architecture.deb" Depends)
for library in libc6 libfcgi libsqlite3-0 libxml2 libuuid1; do
  wanted "psia depends on $library: $depends" grep -q "$library" <<<"$depends"
done
holds() {
  wanted "$1 holds $2" grep -qx ".* \.$2" <<<"$(dpkg-deb --contents "$1")"
}
holds psia-doc_1.0_all.deb /usr/share/doc/psia/docs/installation.md
holds psia-camera-daemons_1.0_all.deb /usr/sbin/camera-daemons
holds psia-camera-daemons_1.0_all.deb /usr/share/psia/simulator/board.py

program=deb/usr/libexec/psia/psia.fcgi
wanted "the packed program tells its version" grep -x 'psia.fcgi [0-9.]*' <<<"$($program --version)"
# timeout(1) takes script(1) out of the terminal's foreground: it would be stopped if it read the terminal.
said=$(timeout 10 script --quiet --command "$program" /dev/null </dev/null) || true
wanted "on a terminal the program says how it is started instead of waiting" grep FastCGI <<<"$said"
