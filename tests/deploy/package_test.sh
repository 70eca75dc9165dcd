#!/bin/bash
# Packs the build in the build directory $1 and looks into both packages.
set -euo pipefail

cd "$1"
rm -rf package-test
mkdir -p package-test/deb package-test/tgz
cpack -B package-test >package-test/log || { cat package-test/log >&2; exit 1; }
dpkg-deb --extract package-test/psia_*.deb package-test/deb
tar --strip-components=2 -C package-test/tgz -xf package-test/psia-*.tar.gz

# Places that the documents name, and a program that was not left out.
for file in libexec/psia/psia.fcgi libexec/psia/psia-rights share/psia/lighttpd.conf share/psia/nginx.conf \
  share/psia/psia.init lib/systemd/system/psia.socket lib/systemd/system/psia.service \
  share/doc/psia/docs/installation.md; do
  wc -c "package-test/deb/usr/$file" "package-test/tgz/$file"
done
# The deployment files name the program's place in this very package.
grep -q '^ExecStart=/usr/libexec/psia/psia.fcgi$' package-test/deb/usr/lib/systemd/system/psia.service
# The libraries that the program needs are named as packages.
dpkg-deb --field package-test/psia_*.deb Depends | grep -q 'libsqlite3-0.*libxml2'

program=package-test/deb/usr/libexec/psia/psia.fcgi
$program --version | grep -qx 'psia.fcgi [0-9.]*'
# On a terminal it says how it is to be started instead of waiting for ever.
timeout 10 script --quiet --command "$program" /dev/null | grep -q FastCGI
