# Timing helpers shared by the benchmark scripts (sourced, not run).

# now_us: the wall clock in microseconds, without starting a process.
now_us() { local t=$EPOCHREALTIME; echo "${t/./}"; }

# time_us COMMAND...: wall time of one run in microseconds, output discarded.
time_us() {
  local start end
  start=$EPOCHREALTIME
  "$@" >/dev/null 2>&1
  end=$EPOCHREALTIME
  echo $(( ${end/./} - ${start/./} ))
}

# median VALUES...: the middle value of the numbers given.
median() { printf '%s\n' "$@" | sort -n | sed -n "$(( ($# + 1) / 2 ))p"; }

# spread VALUES...: "median (min-max)" of the numbers given, in milliseconds to 0.1 ms when
# they are microseconds.
spread() {
  printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END {
    printf "%.1f (%.1f-%.1f)", v[int((NR + 1) / 2)] / 1000, v[1] / 1000, v[NR] / 1000 }'
}

# ratio A B: A / B to two decimals.
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b ? a / b : 0 }'; }

# load_average: the one-minute load average, for the record beside every result.
load_average() { cut -d' ' -f1 /proc/loadavg; }

# ms MICROSECONDS: the value in milliseconds to 0.1 ms.
ms() { awk -v v="$1" 'BEGIN { printf "%.1f", v / 1000 }'; }
