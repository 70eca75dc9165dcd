#!/bin/bash
# Packs the build in the build directory $1 and looks into the packages.
set -euo pipefail
documents=$(cd "$(dirname "$0")/../../docs" && pwd)

cd "$1"
rm -rf package-test
mkdir -p package-test/deb package-test/tgz package-test/own
# With a umask that would lock /usr, if the packages had its modes.
(umask 077 && cpack -B package-test) >package-test/log 2>&1 || { cat package-test/log >&2; exit 1; }
cd package-test
architecture=$(dpkg --print-architecture)
dpkg-deb --extract "psia_1.0_$architecture.deb" deb
tar -C own -xf "psia-1.0-Linux-$architecture.tar.gz"

# Places that the documents name, and a program that was not left out.
for file in libexec/psia/psia.fcgi libexec/psia/psia-rights share/psia/lighttpd.conf share/psia/nginx.conf \
  share/psia/psia.init lib/systemd/system/psia.socket lib/systemd/system/psia.service; do
  wc -c "deb/usr/$file"
done
# The files, which name the program's place, and their modes are the same in both.
diff -r deb own
diff <(cd deb && find . -mindepth 2 -printf '%P %m\n' | sort) <(cd own && find . -mindepth 2 -printf '%P %m\n' | sort)
grep -q '^ExecStart=/usr/libexec/psia/psia.fcgi$' own/usr/lib/systemd/system/psia.service
[ -z "$(find own -mindepth 1 -type d ! -perm 755)" ]

# A tarball that an ordinary user packed, unpacked by the documented command, with BusyBox, too: all is root's.
tar -C own --owner=12345 --group=12345 -czf psia-own.tar.gz usr
command=$(sed -n 's|^ *\(tar .*\) psia-\*\.tar\.gz .*|\1|p' "$documents/installation.md" | head -n 1)
for tar in tar "busybox tar"; do
  rm -rf tgz/usr
  ${command/#tar -C \//$tar -C tgz/} psia-own.tar.gz
  [ -z "$(find tgz -mindepth 1 ! -user "$(id -un)")" ] && cmp tgz/usr/libexec/psia/psia.fcgi deb/usr/libexec/psia/psia.fcgi
done

# The libraries that the program needs are named as packages, and no other.
dpkg-deb --field psia_1.0_*.deb Depends | grep 'libsqlite3-0.*libxml2' | grep -qv 'libstdc++'
dpkg-deb --contents psia-doc_1.0_all.deb | grep ./usr/share/doc/psia/docs/installation.md >/dev/null
dpkg-deb --contents "psia-camera-daemons_1.0_$architecture.deb" | grep ./usr/sbin/camera-daemons >/dev/null

program=deb/usr/libexec/psia/psia.fcgi
$program --version | grep -qx 'psia.fcgi [0-9.]*'
# On a terminal it says how it is to be started instead of waiting for ever.
timeout 10 script --quiet --command "$program" /dev/null | grep FastCGI >/dev/null
