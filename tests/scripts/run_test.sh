#!/bin/bash
# scripts/run up to the start of the camera: $1 are the project's sources, $2 is a folder for a copy of them.
set -euo pipefail
# shellcheck source=tests/deploy/checks.sh
. "$(dirname "$0")/../deploy/checks.sh"

rm -rf "$2"
mkdir -p "$2/programs"
cp -r "$1/scripts" "$1/simulator" "$2"
cd "$2"
# A cmake that tells when another one is at work in the same folder.
cat >programs/cmake <<'END_OF_CMAKE'
#!/bin/sh
mkdir busy 2>/dev/null || touch overlap
touch built
sleep 0.3
rmdir busy 2>/dev/null || true
END_OF_CMAKE
chmod +x programs/cmake
export PATH="$PWD/programs:$PATH"

said=$(scripts/run nonsense 2>&1) || true
wanted "an argument that is no option is named" grep 'no option nonsense' <<<"$said"
wanted "nothing is built before" test ! -e built

scripts/run --build >first 2>&1 &
scripts/run --build >second 2>&1
wait $!
wanted "of two that start at once the second says that it waits" \
  grep 'waits until it has finished' first second
wanted "it waits for the first one's build" test -e built -a ! -e overlap
