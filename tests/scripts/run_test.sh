#!/bin/bash
# scripts/run up to the start of the camera: $1 are the project's sources, $2 is a folder for a copy of them.
set -euo pipefail

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

scripts/run --build >first 2>&1 &
scripts/run --build >second 2>&1
wait $!
if [ -e overlap ] || ! [ -e built ] || ! grep -q 'waits until it has finished' first second; then
  echo "Wanted: the second of two that start at once waits for the first one's build, and says so. They said:"
  cat first second
  exit 1
fi
