# shellcheck shell=bash
# Checks for the tests in bash: the first one that fails says what it wanted, and ends the test.

# wanted TEXT COMMAND...: fails with the text and the command's output unless the command succeeds.
wanted() {
  local said
  said=$("${@:2}" 2>&1) || {
    printf 'Wanted: %s\nBut %s failed:\n%s\n' "$1" "${*:2}" "$said" >&2
    exit 1
  }
}
# same TEXT EXPECTED ACTUAL
same() {
  [ "$2" = "$3" ] || {
    printf 'Wanted: %s\nExpected: %s\nGot:      %s\n' "$@" >&2
    exit 1
  }
}
