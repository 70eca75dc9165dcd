#!/bin/bash
# Builds the service from the sources $1 in the folder $2 as another's build system does: without presets and
# GoogleTest, with a compiler under another name, and with flags, paths and warnings of its own.
set -euo pipefail
# shellcheck source=tests/deploy/checks.sh
. "$(dirname "$0")/checks.sh"

rm -rf "$2"
mkdir -p "$2"
cd "$2"
ln -s "$(command -v g++)" board-c++
CXXFLAGS="-D_FORTIFY_SOURCE=1 -Wpadded" cmake -S "$1" -B build -G Ninja -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
  -DCMAKE_CXX_COMPILER="$PWD/board-c++" -DCMAKE_BUILD_TYPE=MinSizeRel -DPSIA_FACTORY_DATA=/dev/mtd9 \
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DPSIA_UNITS=OFF -DPSIA_DOCUMENTS=OFF \
  -DPSIA_SETTINGS_DIR=/data/settings -DPSIA_DOCUMENT_ROOT=/data/www -DPSIA_EXCHANGE_DIR=/data/www/exchange \
  >configure.log
cmake --build build >build.log || { tail build.log; exit 1; }
wanted "warnings that were asked for are shown" grep -m 1 Wpadded build.log
same "the builder's flags stay" "" "$(grep -oE '_FORTIFY_SOURCE=2|-flto' build/compile_commands.json)"

DESTDIR=$PWD/root cmake --install build --prefix /opt/camera >install.log
same "without units and documents, these files are installed" "./libexec/psia/psia-rights
./libexec/psia/psia.fcgi
./share/psia/lighttpd.conf
./share/psia/nginx.conf
./share/psia/psia.init" "$(cd root/opt/camera && find . -type f | sort)"
wanted "the start script names the place of the program" \
  grep '^PROGRAM=/opt/camera/libexec/psia/psia.fcgi$' root/opt/camera/share/psia/psia.init
same "no program and no set-up keeps a path of another camera" "" \
  "$(grep -rlE '/usr/local|mtdblock7|updownload' root build/deploy)"
wanted "the web server refuses the exchange directory" \
  grep -F '^/exchange(/|$)' root/opt/camera/share/psia/nginx.conf
same "no program needs a C++ library" "" \
  "$(readelf -d build/psia.fcgi build/psia-rights | grep -o 'libstdc++\|libgcc')"
