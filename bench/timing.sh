# Timing helpers shared by the benchmark scripts (sourced, not run).

# time_us COMMAND...: wall time of one run in microseconds, output discarded.
time_us() {
  local start end
  start=$(date +%s%N)
  "$@" >/dev/null 2>&1
  end=$(date +%s%N)
  echo $(( (end - start) / 1000 ))
}

# median VALUES...: the middle value of the numbers given.
median() { printf '%s\n' "$@" | sort -n | sed -n "$(( ($# + 1) / 2 ))p"; }
