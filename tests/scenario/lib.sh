# Shared helpers of the scenario tests: run the real binary, compare exact bytes, count failures.
# A scenario script sources this, calls `run` and the `expect_*` checks, and ends with `finish`.
set -u

: "${MAILRIG:?MAILRIG must name the mailrig binary}"
: "${MAILRIG_TESTS:?MAILRIG_TESTS must name the tests folder}"

failures=0
checks=0
OUT=$(mktemp) ERR=$(mktemp)
STATUS=0

# run ARGS...: runs mailrig; its stdout, stderr and exit status land in $OUT, $ERR, $STATUS.
run() {
  STATUS=0
  "$MAILRIG" "$@" >"$OUT" 2>"$ERR" || STATUS=$?
}

fail() {
  failures=$((failures + 1))
  echo "FAIL: $*" >&2
}

# mailrig_ok ARGS...: runs mailrig, which must succeed.
mailrig_ok() {
  run "$@"
  checks=$((checks + 1))
  [ "$STATUS" -eq 0 ] || fail "mailrig $(printf '%q ' "$@")exited $STATUS: $(head -c 400 "$ERR")"
}

# panel SQL: runs SQL on the panel database of the sandbox's MariaDB server.
panel() { mariadb --no-defaults --protocol=socket --socket=/run/mysqld/mysqld.sock -uroot zvt -N -B -e "$1"; }

expect_status() {
  checks=$((checks + 1))
  [ "$STATUS" -eq "$1" ] || fail "${2:-}: exit status $STATUS, expected $1 (stderr: $(head -c 400 "$ERR"))"
}

# expect_file_eq FILE EXPECTED-TEXT [WHAT]: the file holds exactly the text (printf %s).
expect_file_eq() {
  checks=$((checks + 1))
  if ! cmp -s "$1" <(printf '%s' "$2"); then
    fail "${3:-$1}: content differs"
    diff <(printf '%s' "$2") "$1" | head -20 >&2
  fi
}

# expect_same_file FILE GOLDEN [WHAT]
expect_same_file() {
  checks=$((checks + 1))
  if ! cmp -s "$1" "$2"; then
    fail "${3:-$1}: differs from $2"
    diff "$2" "$1" | head -20 >&2
  fi
}

expect_stdout() { expect_file_eq "$OUT" "$1" "${2:-stdout}"; }
expect_stderr() { expect_file_eq "$ERR" "$1" "${2:-stderr}"; }

# [WHAT=...] check COMMAND...: the command succeeds.
check() { checks=$((checks + 1)); "$@" || fail "${WHAT:-check}: $*"; }

expect_eq() {
  checks=$((checks + 1))
  [ "$1" = "$2" ] || fail "${3:-value}: got '$1', expected '$2'"
}

finish() {
  rm -f "$OUT" "$ERR"
  echo "$checks checks, $failures failed"
  [ "$failures" -eq 0 ]
}
