#!/bin/bash
# Builds the service from the sources $1 in the folder $2 as another's build system does: without presets, without
# GoogleTest, with a compiler under another name, flags of its own, and warnings that this project does not know.
set -euo pipefail

rm -rf "$2"
mkdir -p "$2"
cd "$2"
ln -s "$(command -v g++)" board-c++
CXXFLAGS="-D_FORTIFY_SOURCE=1 -Wpadded" cmake -S "$1" -B build -G Ninja -DCMAKE_CXX_COMPILER="$PWD/board-c++" \
  -DCMAKE_BUILD_TYPE=MinSizeRel -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DPSIA_UNITS=OFF -DPSIA_DOCUMENTS=OFF \
  -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >configure.log
cmake --build build >build.log
grep -q Wpadded build.log
if grep -qE '_FORTIFY_SOURCE=2|-flto' build/compile_commands.json; then exit 1; fi

# What is left of the flags is the project's own.
cmake -S "$1" -B unflagged -G Ninja -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DSHLIBDEPS_PROGRAM= >>configure.log
grep -q _FORTIFY_SOURCE=2 unflagged/compile_commands.json
if grep -q -- -Werror unflagged/compile_commands.json; then exit 1; fi
# Without dpkg-shlibdeps there is no package that names no library, but a message, before anything is built.
if cmake --build unflagged --target packages >packages.log 2>&1; then exit 1; fi
grep -q 'apt-get install file dpkg-dev' packages.log
[ -z "$(find unflagged -name '*.deb' -o -name 'psia*' -type f)" ]

DESTDIR=$PWD/root cmake --install build --prefix /opt/camera >install.log
diff - <(cd root && find . -type f | sort) <<'END'
./opt/camera/libexec/psia/psia-rights
./opt/camera/libexec/psia/psia.fcgi
./opt/camera/share/psia/lighttpd.conf
./opt/camera/share/psia/nginx.conf
./opt/camera/share/psia/psia.init
END
grep -q '^PROGRAM=/opt/camera/libexec/psia/psia.fcgi$' root/opt/camera/share/psia/psia.init
# Neither needs a C++ library, in the smallest build either.
for program in psia.fcgi psia-rights; do
  if readelf -d "build/$program" | grep -q 'libstdc++\|libgcc'; then exit 1; fi
done
