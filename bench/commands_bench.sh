#!/usr/bin/env bash
# Whole mailrig commands at hosting scale, each beside what it cannot do with less:
#   overhead  every command against a shell script replaying the same postmap/postconf command
#             lines with the same input (recorded from the command itself), and --add-mailname
#             against the peers' way (append to the map's text, rebuild the whole map);
#             at every size, for a domain with 0 and with 5 domain aliases
#   rewrite   --remove-domain and --rename-mailname against a dump/filter/rebuild pipeline and
#             against the bare dump and rebuild with no filter at all (the floor of a rewrite),
#             with mailrig's own peak resident memory
#   lookups   the longest `postmap -q` of virtual while each command runs, beside an idle spell
# Every comparison is interleaved run by run, each run from the same saved state. Runs itself
# inside the test sandbox with its MariaDB server (tables and trees on the sandbox's tmpfs).
#   bench/commands_bench.sh [sections...]   (default: overhead rewrite lookups)
#   SIZES="1000 100000 1000000" RUNS=11 BIG_RUNS=5 ALIASES="0 5" REWRITE_SIZES="100000 1000000"
#   LOOKUP_SIZE=1000000; expects a build of mailrig and mailrig-setup in ./build.
#   OTHER_MAILRIG=path adds another build of mailrig to the overhead runs (before and after).
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/timing.sh"
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mailrig=$top/build/src/front/dispatch/mailrig
setup=$top/build/src/front/setup/mailrig-setup
for program in "$mailrig" "$setup"; do
  [ -x "$program" ] || { echo "build first: $program is missing" >&2; exit 1; }
done
if [ -z "${MAILRIG_SANDBOX_INSIDE:-}" ]; then
  exec "$top/sandbox/sandbox.sh" bash "${BASH_SOURCE[0]}" "$@"
fi
sections=${*:-overhead rewrite lookups}
sizes=${SIZES:-1000 100000 1000000}
runs=${RUNS:-11}
big_runs=${BIG_RUNS:-5}   # at 1,000,000 records and more, where one run takes seconds
alias_counts=${ALIASES:-0 5}
rewrite_sizes=${REWRITE_SIZES:-100000 1000000}
lookup_size=${LOOKUP_SIZE:-1000000}

Q=/var/spool/postfix/quelt
V=hash:$Q/virtual
D=example.com
work=$MAILRIG_SANDBOX_ROOT/bench
STATE_DIRS=(/var/spool/postfix/quelt /var/qmail /var/lib/quelt /etc/postfix)
mkdir -p "$work/real" "$work/calls"
export LC_ALL=C

"$top/sandbox/mariadb.sh" start >/dev/null
trap '"$top/sandbox/mariadb.sh" stop' EXIT
panel() { mariadb --no-defaults --protocol=socket --socket=/run/mysqld/mysqld.sock -uroot zvt -N -B -e "$1"; }

# --- the command lines compared ---------------------------------------------------------------

declare -A ARGS=(
  [add-mailname]="--add-mailname --domain-name=$D --mailname=bench"
  [add-alias]="--add-alias --domain-name=$D --mailname=info --alias=sales"
  [remove-mailname]="--remove-mailname --domain-name=$D --mailname=info"
  [set-password]="--set-password --domain-name=$D --mailname=info"
  [add-domain]="--add-domain --domain-name=new.example"
  [remove-domain]="--remove-domain --domain-name=$D"
  [rename-mailname]="--rename-mailname --domain-name=$D --old-mailname=info --new-mailname=office"
)
OVERHEAD_COMMANDS="add-mailname add-alias remove-mailname set-password add-domain"
REWRITE_COMMANDS="remove-domain rename-mailname"

# mailrig_run NAME [PROGRAM]: the command NAME, its output discarded; exits the benchmark if it
# fails.
mailrig_run() {
  local -a args
  read -ra args <<< "${ARGS[$1]}"
  if ! ZVT_PASSWORD=secret2 "${2:-$mailrig}" "${args[@]}" >/dev/null 2>"$work/err"; then
    echo "mailrig ${ARGS[$1]} failed: $(head -c 400 "$work/err")" >&2
    exit 1
  fi
}

# children_cpu_us VAR: the processor time (user and system, us) of this shell's finished
# children, read without starting a process (whose own time would count).
children_cpu_us() {
  local -n out=$1
  local user sys t total=0
  times > "$work/times"
  { read -r _; read -r user sys; } < "$work/times"
  for t in "$user" "$sys"; do   # like 1m2.345s
    local min=${t%%m*} sec=${t#*m}
    sec=${sec%s}
    total=$(( total + (min * 60 + ${sec%.*}) * 1000000 + 10#${sec#*.} * 1000 ))
  done
  out=$total
}

# timed VAR COMMAND...: runs COMMAND in this shell; its wall time in microseconds is appended to
# the array VAR, its processor time (its own and its children's, not a server's) to VAR_cpu.
timed() {
  local -n into=$1 cpu=${1}_cpu
  shift
  local before after start end
  children_cpu_us before
  start=$EPOCHREALTIME
  "$@"
  end=$EPOCHREALTIME
  children_cpu_us after
  into+=($(( ${end/./} - ${start/./} )))
  cpu+=($(( after - before )))
}

# --- states -----------------------------------------------------------------------------------

# States keep each folder under its whole path (/var/lib/quelt and /var/spool/postfix/quelt).
save_state() {
  local d
  rm -rf "$work/state.$1"
  for d in "${STATE_DIRS[@]}"; do mkdir -p "$work/state.$1${d%/*}"; cp -a "$d" "$work/state.$1${d%/*}/"; done
}
restore_state() {
  local d
  for d in "${STATE_DIRS[@]}"; do rm -rf "$d"; cp -a "$work/state.$1$d" "${d%/*}/"; done
  # A state is a moment of the past: Postfix's tools need not wait for main.cf to settle.
  touch -d '-1 min' /etc/postfix/main.cf
}

# A panel installation names its mail root in its configuration file.
mkdir -p /etc/zvt && printf 'QUELT_MAILNAMES_D /var/qmail/mailnames\n' > /etc/zvt/zvt.conf
"$setup" >/dev/null
save_state setup

# build_state RECORDS ALIASES: example.com with its domain aliases, the mailname info with a
# mailbox and a password, new.example waiting in the panel for --add-domain, and filler records
# over 1000 other domains up to RECORDS records in virtual. Saved as the state `base`; the text
# of virtual is kept for the peers' way.
build_state() {
  local n=$1 aliases=$2 k have
  restore_state setup
  panel "DELETE FROM mail_aliases; DELETE FROM mail; DELETE FROM domainaliases; DELETE FROM domains;
         INSERT INTO domains (id, name) VALUES (1, '$D'), (2, 'new.example');
         INSERT INTO mail (id, mail_name, dom_id) VALUES (10, 'info', 1), (11, 'bench', 1);"
  for ((k = 1; k <= aliases; k++)); do
    panel "INSERT INTO domainaliases (name, dom_id) VALUES ('alias$k.example', 1), ('newalias$k.example', 2)"
    printf 'alias%d.example 1\n' "$k" | postmap -i "$V"
  done
  mailrig_run_args --add-domain --domain-name=$D
  local domains="('$D', 0), ('new.example', 0)"
  for ((k = 1; k <= aliases; k++)); do domains+=", ('alias$k.example', 0), ('newalias$k.example', 0)"; done
  sqlite3 "$Q/passwd.db" "INSERT INTO domains (name, status) VALUES $domains"
  mailrig_run_args --add-mailname --domain-name=$D --mailname=info
  ZVT_PASSWORD=secret mailrig_run_args --add-mailbox --domain-name=$D --mailname=info
  postmap -s "$V" > "$work/virtual.txt"
  have=$(wc -l < "$work/virtual.txt")
  awk -v n=$((n - have)) 'BEGIN { for (i = 0; i < n; i++)
      printf "u%d@d%d.example a%d@x.example, b%d@d%d.example, c%d@y.example\n", i, i % 1000, i, i, (i + 7) % 1000, i }' \
    >> "$work/virtual.txt"
  cp "$work/virtual.txt" "$Q/virtual"
  postmap "$V"
  rm "$Q/virtual"
  touch -d '-1 min' /etc/postfix/main.cf
  save_state base
}
mailrig_run_args() {
  "$mailrig" "$@" >/dev/null 2>"$work/err" || { echo "mailrig $* failed: $(head -c 400 "$work/err")" >&2; exit 1; }
}

# --- the replaying shell script -----------------------------------------------------------------

# While $work/spy.on exists, postmap and postconf log each run's arguments and standard input
# (the runs mailrig makes while one command is recorded).
for tool in postmap postconf; do
  cp "/usr/sbin/$tool" "$work/real/$tool"
  cat > "$work/real/$tool.spy" <<EOF
#!/bin/bash
if [ -e $work/spy.on ]; then
  n=\$(( \$(cat $work/spy.count) + 1 )); echo \$n > $work/spy.count
  printf '%s\0' /usr/sbin/$tool "\$@" > $work/calls/\$n.args
  case " \$* " in
    *' -i '*|*' -d - '*) cat > $work/calls/\$n.in; exec $work/real/$tool "\$@" < $work/calls/\$n.in ;;
    *' -s '*|*' -q '*|*' -d '*) ;;
    *) if [ $tool = postmap ]; then last=\${*: -1}; cp "\${last#*:}" $work/calls/\$n.text; fi ;;
  esac
fi
exec $work/real/$tool "\$@"
EOF
  chmod 755 "$work/real/$tool.spy"
done
# The spies stand in for the tools only while a command is recorded: a timed run starts the
# real tools.
spy_on() { local tool; for tool in postmap postconf; do mount --bind "$work/real/$tool.spy" "/usr/sbin/$tool"; done; }
spy_off() { umount /usr/sbin/postmap /usr/sbin/postconf; }

# record NAME: runs the command once from `base` and writes $work/replay.NAME.sh, a shell script
# making the same postmap and postconf runs with the same arguments and input, in the same order.
# A dump (postmap -s) goes to a file beside the table, as a shell's own rewrite would write it.
record() {
  local name=$1 f n=0 dump=
  local -a args
  restore_state base
  rm -f "$work"/calls/*; echo 0 > "$work/spy.count"; touch "$work/spy.on"
  spy_on
  mailrig_run "$name"
  spy_off
  rm "$work/spy.on"
  rm -rf "$work/calls.$name"; cp -a "$work/calls" "$work/calls.$name"
  {
    echo '#!/bin/bash'
    echo 'set -e'
    while [ -e "$work/calls/$((n + 1)).args" ]; do
      n=$((n + 1))
      mapfile -d '' args < "$work/calls/$n.args"
      if [ -e "$work/calls/$n.in" ]; then
        printf '%q ' "${args[@]}"; printf '< %q > /dev/null\n' "$work/calls.$name/$n.in"
      elif [[ " ${args[*]} " == *' -s '* ]]; then
        dump=$Q/.replay.dump
        printf '%q ' "${args[@]}"; printf '> %q\n' "$dump"
      elif [ -e "$work/calls/$n.text" ]; then
        # A rebuild from a text beside the table: the shell writes that text (copied here), builds
        # it and renames the result into place.
        local text=${args[-1]#hash:} base
        base=${text##*/}; base=${base#.}; base=${base%%.tmp.*}
        printf 'cp %q %q
' "$work/calls.$name/$n.text" "$text"
        printf '%q ' "${args[@]}"; echo '> /dev/null'
        printf 'mv %q %q
rm -f %q
' "$text.db" "${text%/*}/$base.db" "$text"
      else
        case " ${args[*]} " in
          *' -q '*|*' -d '*|*postconf*) printf '%q ' "${args[@]}"; echo '> /dev/null || true' ;;
          *) echo "record $name: a rebuild without its text cannot be replayed: ${args[*]}" >&2; exit 1 ;;
        esac
      fi
    done
    [ -z "$dump" ] || printf 'rm -f %q\n' "$dump"
  } > "$work/replay.$name.sh"
  echo "$n" > "$work/replay.$name.count"
}

# The peers' way: the map's whole text is the source; one change appends a line and rebuilds.
peer_prepare() { cp "$work/virtual.txt" "$Q/virtual"; }
peer_add() {
  printf 'bench@%s bench@%s\n' "$D" "$D" >> "$Q/virtual"
  postmap "$V"
}

# --- overhead -------------------------------------------------------------------------------------

overhead() {
  local n a name
  echo "## Command overhead (runs: $runs each, $big_runs from 1,000,000 records, interleaved; load average at start: $(load_average))"
  echo
  echo "Wall ms, median (min-max). replay = bash script of the same postmap/postconf runs, no locks."
  echo "CPU ms = user + system time of the command and its children (median), mailrig / replay;"
  echo "the MariaDB server's time for mailrig's queries is in neither."
  echo
  echo "| records | domain aliases | command | postmap/postconf runs | mailrig | replay | ratio | CPU ms | CPU ratio | peers' rebuild | peers/ours |${OTHER_MAILRIG:+ other build |}"
  echo "|---|---|---|---|---|---|---|---|---|---|---|${OTHER_MAILRIG:+---|}"
  for n in $sizes; do
    for a in $alias_counts; do
      build_state "$n" "$a"
      for name in $OVERHEAD_COMMANDS; do record "$name"; done
      local rounds=$runs
      [ "$n" -lt 1000000 ] || rounds=$big_runs
      for name in $OVERHEAD_COMMANDS; do
        local -a ours=() theirs=() peers=() other=() ours_cpu=() theirs_cpu=() peers_cpu=() other_cpu=()
        for ((r = 0; r < rounds; r++)); do
          restore_state base; timed ours mailrig_run "$name"
          if [ -n "${OTHER_MAILRIG:-}" ]; then restore_state base; timed other mailrig_run "$name" "$OTHER_MAILRIG"; fi
          restore_state base; timed theirs bash "$work/replay.$name.sh"
          if [ "$name" = add-mailname ]; then
            restore_state base; peer_prepare; timed peers peer_add; rm -f "$Q/virtual"
          fi
        done
        local peer='-' times='-'
        if [ "$name" = add-mailname ]; then
          peer=$(spread "${peers[@]}"); times="$(ratio "$(median "${peers[@]}")" "$(median "${ours[@]}")")x"
        fi
        printf '| %s | %s | --%s | %s | %s | %s | %sx | %s / %s | %sx | %s | %s |\n' "$n" "$a" "$name" \
          "$(cat "$work/replay.$name.count")" "$(spread "${ours[@]}")" "$(spread "${theirs[@]}")" \
          "$(ratio "$(median "${ours[@]}")" "$(median "${theirs[@]}")")" \
          "$(ms "$(median "${ours_cpu[@]}")")" "$(ms "$(median "${theirs_cpu[@]}")")" \
          "$(ratio "$(median "${ours_cpu[@]}")" "$(median "${theirs_cpu[@]}")")" \
          "$peer" "$times${other:+ | other build $(spread "${other[@]}")}"
      done
    done
  done
  echo
}

# --- whole-table rewrites -------------------------------------------------------------------------

# peak_rss_kb COMMAND...: runs COMMAND, sampling its own VmHWM (its children's memory is theirs);
# the last sample is the peak. Prints KB.
peak_rss_kb() {
  "$@" >/dev/null 2>"$work/err" &
  local pid=$! hwm=0 line
  while kill -0 "$pid" 2>/dev/null; do
    line=$(grep VmHWM "/proc/$pid/status" 2>/dev/null) && hwm=$(echo "$line" | awk '{print $2}')
    sleep 0.01
  done
  wait "$pid" || { echo "failed: $* $(head -c 300 "$work/err")" >&2; exit 1; }
  echo "$hwm"
}

# The shell pipeline of each rewrite: dump, filter, build beside, rename into place.
shell_rewrite() {
  local text=$Q/.shell.virtual
  postmap -s "$V" | "${FILTER[@]}" > "$text"
  postmap "hash:$text"
  mv "$text.db" "$Q/virtual.db"
  rm -f "$text"
}
# The floor: the same dump and build with nothing between them.
bare_rewrite() {
  local text=$Q/.bare.virtual
  postmap -s "$V" > "$text"
  postmap "hash:$text"
  mv "$text.db" "$Q/virtual.db"
  rm -f "$text"
}

rewrite() {
  local n name rss
  echo "## Whole-table rewrites (runs: $runs each, $big_runs from 1,000,000 records, interleaved; load average at start: $(load_average))"
  echo
  echo "Wall ms, median (min-max); pipeline = postmap -s | filter > text; postmap; mv (mawk for"
  echo "--remove-domain's element filter, sed for the rename); floor = postmap -s > text; postmap; mv."
  echo
  echo "| records | command | mailrig | pipeline | floor | ours/floor | ours/pipeline | mailrig peak RSS KB |"
  echo "|---|---|---|---|---|---|---|---|"
  for n in $rewrite_sizes; do
    build_state "$n" 0
    for name in $REWRITE_COMMANDS; do
      if [ "$name" = remove-domain ]; then FILTER=(mawk -v D=$D -f "$top/bench/remove_domain.awk")
      else FILTER=(sed 's/\(^\|[ ,]\)info@example\.com\([ ,]\|$\)/\1office@example.com\2/g'); fi
      local -a ours=() theirs=() floor=() rsses=() ours_cpu=() theirs_cpu=() floor_cpu=()
      local rounds=$runs
      [ "$n" -lt 1000000 ] || rounds=$big_runs
      for ((r = 0; r < rounds; r++)); do
        restore_state base; timed ours mailrig_run "$name"
        restore_state base; timed theirs shell_rewrite
        restore_state base; timed floor bare_rewrite
      done
      for ((r = 0; r < 2; r++)); do
        restore_state base
        rsses+=("$(ZVT_PASSWORD=secret2 peak_rss_kb "$mailrig" ${ARGS[$name]})")
      done
      printf '| %s | --%s | %s | %s | %s | %s | %s | %s |\n' "$n" "$name" "$(spread "${ours[@]}")" \
        "$(spread "${theirs[@]}")" "$(spread "${floor[@]}")" \
        "$(ratio "$(median "${ours[@]}")" "$(median "${floor[@]}")")" \
        "$(ratio "$(median "${ours[@]}")" "$(median "${theirs[@]}")")" "${rsses[*]}"
    done
  done
  echo
}

# --- lookups while a command runs -----------------------------------------------------------------

# lookups_during COMMAND...: the longest and the median postmap -q of virtual (us) while
# COMMAND runs, and how many lookups were made.
lookups_during() {
  rm -f "$work/stop"
  (
    while [ ! -e "$work/stop" ]; do
      s=$EPOCHREALTIME
      postmap -q u5@d5.example "$V" >/dev/null
      e=$EPOCHREALTIME
      echo $(( ${e/./} - ${s/./} ))
    done > "$work/lookups"
  ) &
  local loop=$!
  sleep 0.1
  "$@"
  touch "$work/stop"
  wait "$loop"
  echo "$(sort -n "$work/lookups" | tail -1) $(median $(cat "$work/lookups")) $(wc -l < "$work/lookups")"
}
idle() { sleep "$1"; }

lookups() {
  local name max med count
  echo "## Lookups of virtual while a command runs ($lookup_size records; load average at start: $(load_average))"
  echo
  echo "A loop of postmap -q beside the command, from 0.1 s before it until it ends."
  echo
  echo "| command | longest lookup ms | median lookup ms | lookups |"
  echo "|---|---|---|---|"
  build_state "$lookup_size" 5
  for name in $OVERHEAD_COMMANDS $REWRITE_COMMANDS; do
    restore_state base
    read -r max med count < <(lookups_during mailrig_run "$name")
    printf '| --%s | %s | %s | %s |\n' "$name" "$(ms "$max")" "$(ms "$med")" "$count"
  done
  restore_state base
  read -r max med count < <(lookups_during idle 2)
  printf '| (nothing, 2 s) | %s | %s | %s |\n' "$(ms "$max")" "$(ms "$med")" "$count"
  echo
}

echo "mailrig: $mailrig; $(nproc) cores; $(date -u '+%Y-%m-%d %H:%M UTC')"
echo
for section in $sections; do "$section"; done
