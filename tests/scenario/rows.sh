# Command cases as rows: a named starting state, the command line, the exit status and the
# expected change of every store. Sourcing this starts the sandbox's MariaDB server, unless the
# script set ROWS_NO_PANEL=1 first (its commands never read the panel; one that tries fails its
# row); the saved states `bare` (before mailrig-setup) and `fresh` (after it, made on first use)
# are the starts.
#
#   fixture NAME 'bash commands'     a state built from fresh; "a+b" applies b on top of a,
#                                    "bare+a" starts from bare instead
#   row FIXTURE RC EXPECT ARGS...    reset to FIXTURE, run $MAILRIG ARGS (MAILRIG=$SETUP row ...
#                                    runs mailrig-setup), check status, streams and every store
#   use_fixture FIXTURE              reset to FIXTURE without running anything
#   save_state NAME                  the current stores become a starting state NAME
#   snapshot STORE                   the store's current snapshot lines
#   lock_held_run PATH STORE CMD...  CMD must wait for PATH's lock with STORE unchanged
#
# EXPECT lines: `<store> +<line>`, `<store> -<line>`, `<store> *`, `stdout = <text>`,
# `stdout ~ <ERE>` (same for stderr). `= <text>` means the whole stream is text (with \n, \t,
# \\ escapes) plus one closing newline; a bare `=` means an empty stream. Stores not named must
# be unchanged. Stores: the six tables, tree (the mail root itself is `./`), files, passwd,
# handlers, panel, maincf, mastercf, other, and signals (`trivial-rewrite INT`: a signal the
# stand-in of Postfix's address rewriting daemon received).
. "$MAILRIG_TESTS/scenario/lib.sh"
export LC_ALL=C

Q=/var/spool/postfix/quelt
ROOT=/var/qmail/mailnames
HANDLERS_DB=/var/lib/quelt/mail/handlers/handlers.db
SETUP=$MAILRIG_BUILD/src/front/setup/mailrig-setup
TABLES=(virtual_domains virtual vmailbox aliases sdd_transport_maps blacklists)
TABLES_RE=$(IFS='|'; echo "${TABLES[*]}")
STORES=" ${TABLES[*]} tree files passwd handlers panel maincf mastercf other signals "
# What a reset puts back, grouped by parent folder (one copy per group).
SAVED_DIRS=(/var/spool/postfix/quelt /var/qmail /var/lib/quelt /etc/postfix /etc/zvt /etc/zvt-spf
            /etc/domainkeys /etc/sysconfig /var/spool/cron /usr/local/zvt)
STATE=$MAILRIG_SANDBOX_ROOT/rows
mdb=$MAILRIG_SANDBOX_DIR/mariadb.sh
mkdir -p "$STATE/postconf"

passwd_sql() { sqlite3 "$Q/passwd.db" "$1"; }
handlers_sql() { sqlite3 "$HANDLERS_DB" "$1"; }
T=$'\t'
# The EXPECT lines of a command that prints nothing.
quiet='stdout =
stderr ='

# --- snapshots -------------------------------------------------------------------------------

snap_sqlite() { # DB LABEL-IF-ABSENT: every row of every table as table|col|...
  [ -e "$1" ] || { echo '<absent>'; return; }
  local tables sql='' t
  tables=$(sqlite3 -readonly "$1" "SELECT name FROM sqlite_master WHERE type='table' AND name NOT LIKE 'sqlite_%'" 2>/dev/null) ||
    { echo '<unreadable>'; return; }
  for t in $tables; do sql+="SELECT '$t', * FROM \"$t\";"; done
  [ -z "$sql" ] || sqlite3 -readonly "$1" "$sql" 2>/dev/null || echo '<unreadable>'
}

snap_files() { # lines of small files under the mail root, mail messages aside
  [ -d "$ROOT" ] || return 0
  local f rel line
  while IFS= read -r -d '' f; do
    rel=${f#"$ROOT"/}
    while IFS= read -r line || [ -n "$line" ]; do printf '%s: %s\n' "$rel" "$line"; done < "$f"
    [ ! -s "$f" ] || [ -z "$(tail -c 1 "$f")" ] || printf '%s: \\ no newline at end\n' "$rel"
  done < <(find "$ROOT" -type f -size -64k -not -regex '.*/\(cur\|new\|tmp\)/[^/]*' -print0)
}

snap_other() { # checksums of the remaining files mailrig may write
  find /etc/zvt-spf /etc/domainkeys /etc/sysconfig /var/spool/cron /usr/local/zvt /etc/zvt \
       /etc/courier /var/lib/quelt /etc/postfix "$Q" -type f 2>/dev/null |
    grep -Ev "^($HANDLERS_DB|/etc/postfix/(main|master)\.cf|$Q/(($TABLES_RE)(\.db)?|passwd\.db|master\.cf\.disabled))$" |
    xargs -r sha1sum | awk '{print $2, $1}'
}

snap_signals() {
  [ -n "${STANDIN_PID:-}" ] || return 0
  local state pending status=0 bits try
  # Asleep with nothing pending: untouched. Dying (running, or a zombie) or with a signal
  # pending: signalled. Anything else is a moment of passage; look again.
  for try in $(seq 500); do
    state=$(awk '/^State:/ {print $2}' "/proc/$STANDIN_PID/status" 2>/dev/null)
    pending=$(awk '/^(ShdPnd|SigPnd):/ {print $2}' "/proc/$STANDIN_PID/status" 2>/dev/null | sort -u | tail -1)
    bits=$((16#${pending:-0}))
    [ "$state" = S ] && [ "$bits" -eq 0 ] && return 0
    [ -z "$state" ] || [ "$state" = Z ] || [ "$bits" -ne 0 ] && break
    sleep 0.01
  done
  # The pending bits cannot name the signal: a fatal one is pending beside the SIGKILL the kernel
  # adds to end the process. A dying process ignores our SIGKILL and exits with the signal sent;
  # one that a signal did not end exits with ours.
  [ "$bits" -eq 0 ] || kill -KILL "$STANDIN_PID" 2>/dev/null
  wait "$STANDIN_PID" 2>/dev/null || status=$?
  if [ "$status" -gt 128 ]; then echo "trivial-rewrite $(kill -l $((status - 128)))"; else echo "trivial-rewrite exit $status"; fi
  start_standin
}

snap_store() { # STORE: its snapshot lines, unsorted
  case $1 in
    tree)
      if [ -d "$ROOT" ]; then
        find "$ROOT" \( -type d -printf '%P/ %u:%g %m\n' \) -o -printf '%P %u:%g %m\n' | sed '1s|^/|./|'
      else echo '<absent>'; fi ;;
    files) snap_files ;;
    passwd) snap_sqlite "$Q/passwd.db" ;;
    handlers) snap_sqlite "$HANDLERS_DB" ;;
    panel)
      local sql='' t
      for t in $PANEL_TABLES; do sql+="SELECT '$t', t.* FROM \`$t\` t;"; done
      [ -z "$sql" ] || panel "$sql" ;;
    maincf) postconf -c "$STATE/postconf" -n 2>&1 ;;
    mastercf)
      cat /etc/postfix/master.cf 2>/dev/null
      [ ! -e "$Q/master.cf.disabled" ] || sed 's/^/disabled: /' "$Q/master.cf.disabled" ;;
    other) snap_other ;;
    signals) cat "$STATE/signals" ;;
    *)
      if [ -e "$Q/$1.db" ]; then postmap -c "$STATE/postconf" -s "hash:$Q/$1" 2>/dev/null || echo '<unreadable>'
      else echo '<absent>'; fi ;;
  esac
}

# Postfix's tools reread a main.cf changed within the last second until it settles; the
# snapshots read a copy dated in the past, at once.
settled_conf() {
  cp /etc/postfix/main.cf /etc/postfix/master.cf "$STATE/postconf/" 2>/dev/null
  touch -d '-1 hour' "$STATE/postconf/main.cf"
}

# The stand-in must be waited for by this shell, not by a pipeline's subshell.
snapshot() { settled_conf; [ "$1" != signals ] || snap_signals > "$STATE/signals"; snap_store "$1" | sort; }

# The files behind the stores whose snapshot is a pure function of them: a store whose files
# kept their bytes kept its snapshot, which then need not be taken again.
store_files() {
  local t
  for t in "${TABLES[@]}"; do echo "$t $Q/$t.db"; done
  echo "passwd $Q/passwd.db"; echo "handlers $HANDLERS_DB"; echo "maincf /etc/postfix/main.cf"
  echo "mastercf /etc/postfix/master.cf"; echo "mastercf $Q/master.cf.disabled"
}
store_sums() {
  local store file
  local -a files=()
  # comm needs the absent files' lines sorted in with the others.
  {
    while read -r store file; do
      if [ -f "$file" ]; then files+=("$file"); else echo "$store $file not a file"; fi
    done < <(store_files)
    sha1sum "${files[@]}" | awk 'NR == FNR { store[$2] = $1; next } { print store[$2], $1 }' <(store_files) -
  } | sort
}

MARK=$'\001store'
# snapshot_all FILE [FIXTURE]: every store's lines prefixed by the store's name, sorted. With a
# fixture, stores whose files are the fixture's reuse its snapshot.
snapshot_all() {
  local out=$1 base=${2:+$STATE/$2} s same=' '
  snap_signals > "$STATE/signals"
  settled_conf
  if [ -n "$base" ]; then
    store_sums > "$STATE/sums"
    same=" $(comm -12 "$base/sums" "$STATE/sums" | awk '{print $1}' | sort -u | tr '\n' ' ')"
    for s in $(comm -3 "$base/sums" "$STATE/sums" | awk '{print $1}'); do same=${same/ $s / }; done
  fi
  {
    for s in $STORES; do
      [[ $same == *" $s "* ]] || { printf '%s %s\n' "$MARK" "$s"; snap_store "$s"; }
    done | awk -v mark="$MARK" '$1 == mark && NF == 2 { s = $2; next } { print s " " $0 }'
    [ -z "$base" ] || awk -v same="$same" 'index(same, " " $1 " ")' "$base/snapshot"
  } | sort > "$out"
}

# std SIGN DOMAIN: the six standard addresses of DOMAIN as EXPECT lines of virtual.
std() {
  local w
  for w in postmaster mailer-daemon root anonymous drweb kluser; do
    printf 'virtual %s%s@%s\t%s@localhost.localdomain\n' "$1" "$w" "$2" "$w"
  done
}
# domain_lines SIGN DOMAIN: DOMAIN's record, standard addresses and root folder as EXPECT lines.
domain_lines() {
  printf 'virtual_domains %s%s\t%s/\n' "$1" "$2" "$2"
  std "$1" "$2"
  echo "tree $1$2/ popuser:popuser 750"
}
# maildirsize SIGN HOME QUOTA: the lines of HOME's maildirsize file holding QUOTA and no use.
maildirsize() {
  echo "files $1$2/Maildir/maildirsize: $3"
  echo "files $1$2/Maildir/maildirsize:            0           0"
}

# --- fixtures --------------------------------------------------------------------------------

declare -A FIXTURES=()
PANEL_LOADED=
fixture() { FIXTURES[$1]=$2; }

# Every store of the current state goes to $STATE/NAME; its snapshot beside.
save_state() {
  local dir=$STATE/$1 d
  rm -rf "$dir"; mkdir -p "$dir/root"
  # A fixture is a state of some time ago: Postfix's tools need not wait for main.cf to settle.
  touch -d '-1 hour' /etc/postfix/main.cf
  for d in "${SAVED_DIRS[@]}"; do
    [ -e "$d" ] || continue
    mkdir -p "$dir/root${d%/*}"
    cp -a "$d" "$dir/root$d"
  done
  [ -n "${ROWS_NO_PANEL:-}" ] ||
    mariadb-dump --no-defaults --socket=/run/mysqld/mysqld.sock -uroot --skip-dump-date zvt > "$dir/panel.sql"
  snap_signals > /dev/null  # what a fixture's own commands sent is no row's doing
  snapshot_all "$dir/snapshot"
  store_sums > "$dir/sums"
  grep '^panel ' "$dir/snapshot" | md5sum > "$dir/panel.sum"
  PANEL_LOADED=$(cat "$dir/panel.sum")
}

restore_state() {
  local dir=$STATE/$1 d parent
  rm -rf "${SAVED_DIRS[@]}"
  declare -A groups=()
  for d in "${SAVED_DIRS[@]}"; do
    [ -e "$dir/root$d" ] && groups[${d%/*}]+=" $dir/root$d"
  done
  for parent in "${!groups[@]}"; do
    # shellcheck disable=SC2086  # folder paths of our own, no blanks
    cp -a ${groups[$parent]} "$parent/"
  done
  if [ -z "${ROWS_NO_PANEL:-}" ] && [ "$PANEL_LOADED" != "$(cat "$dir/panel.sum")" ]; then
    mariadb --no-defaults --socket=/run/mysqld/mysqld.sock -uroot zvt < "$dir/panel.sql"
    PANEL_LOADED=$(cat "$dir/panel.sum")
  fi
}

# The prepared server, made when first needed: mailrig-setup waits for main.cf to settle after
# each change it makes, which is the slowest step of a script.
# The stores it made are kept in the build folder, keyed by everything they depend on, so that
# the next script with the same mailrig-setup starts from them.
prepare_fresh() {
  [ ! -d "$STATE/fresh" ] || return 0
  restore_state bare
  local cache=$MAILRIG_BUILD/rows-cache key d
  key=$(cat "$SETUP" /etc/postfix/main.cf /etc/postfix/master.cf /etc/zvt/zvt.conf <(id popuser) \
        <(echo "${SAVED_DIRS[*]}") | sha1sum | cut -c1-16)
  # /etc/zvt holds this sandbox's own panel password: never taken from the cache.
  local -a dirs=()
  for d in "${SAVED_DIRS[@]}"; do [ "$d" = /etc/zvt ] || dirs+=("${d#/}"); done
  if [ -s "$cache/fresh-$key.tar" ] && (cd / && rm -rf "${dirs[@]}") && tar -xpf "$cache/fresh-$key.tar" -C /; then
    :
  else
    restore_state bare
    "$SETUP" >/dev/null 2>&1 || fail "mailrig-setup did not prepare the sandbox"
    mkdir -p "$cache" && rm -f "$cache"/fresh-*.tar
    for d in "${!dirs[@]}"; do [ -e "/${dirs[$d]}" ] || unset "dirs[$d]"; done
    tar -cpf "$cache/fresh-$key.tar.$$" -C / "${dirs[@]}" && mv -f "$cache/fresh-$key.tar.$$" "$cache/fresh-$key.tar"
  fi
  save_state fresh
}

# use_fixture NAME: the stores as NAME left them; NAME is built on first use.
use_fixture() {
  local name=$1 base=$1 part
  local -a parts=()
  # Start from the longest saved prefix ("a+b" for "a+b+c"; bare, ready or fresh named first).
  while [ "$base" != fresh ] && [ ! -d "$STATE/$base" ]; do
    parts=("${base##*+}" "${parts[@]}")
    if [[ $base == *+* ]]; then base=${base%+*}; else base=fresh; fi
  done
  [ "$base" != fresh ] || prepare_fresh
  if [ ${#parts[@]} -gt 0 ]; then
    restore_state "$base"
    for part in "${parts[@]}"; do
      if [ -z "${FIXTURES[$part]+set}" ]; then fail "unknown fixture $part"; return 1; fi
      PANEL_LOADED=  # a fixture may change the panel database
      eval "${FIXTURES[$part]}" || { fail "fixture $part: its commands failed"; return 1; }
    done
    save_state "$name"
  fi
  restore_state "$name"
}

# --- rows ------------------------------------------------------------------------------------

rows=0
# row FIXTURE RC EXPECT ARGS...
row() {
  local fx=$1 rc=$2 expect=$3 line store rest
  shift 3
  rows=$((rows + 1)); checks=$((checks + 1))
  local where="${BASH_SOURCE[1]##*/}:${BASH_LINENO[0]}" label
  label="row $rows ($where, $fx): ${MAILRIG##*/}$([ $# -eq 0 ] || printf ' %q' "$@")"
  use_fixture "$fx" || { fail "$label: fixture unusable"; return; }

  local -a problems=() streams=()
  local expected=$STATE/row.expected wild=' ' text i file got
  : > "$expected"
  while IFS= read -r line; do
    line=${line#"${line%%[![:space:]]*}"}
    [ -n "$line" ] || continue
    store=${line%% *}; rest=${line#"$store"}; rest=${rest# }
    case $store in
      stdout|stderr)
        if [[ $rest == [=~]* ]]; then streams+=("$store" "$rest"); else problems+=("bad EXPECT line: $line"); fi ;;
      *)
        if [[ $STORES != *" $store "* ]]; then problems+=("unknown store in EXPECT: $line")
        elif [ "$rest" = '*' ]; then wild+="$store "
        elif [[ $rest == [+-]* ]]; then printf '%s\n' "$line" >> "$expected"
        else problems+=("bad EXPECT line: $line"); fi ;;
    esac
  done <<< "$expect"

  snap_signals > /dev/null  # only this command's signals count
  STATUS=0
  "$MAILRIG" "$@" >"$OUT" 2>"$ERR" </dev/null || STATUS=$?
  [ "$STATUS" -eq "$rc" ] || problems+=("exit status $STATUS, expected $rc")

  for ((i = 0; i < ${#streams[@]}; i += 2)); do
    file=$OUT; [ "${streams[i]}" = stdout ] || file=$ERR
    text=${streams[i + 1]:2}
    if [[ ${streams[i + 1]} == '~'* ]]; then
      grep -Eq -- "$text" "$file" || problems+=("${streams[i]} does not match /$text/")
    elif ! cmp -s "$file" <(if [ -n "$text" ]; then printf '%b\n' "$text"; fi); then
      got=$(cat "$file"; echo .); got=${got%.}
      problems+=("${streams[i]} is $(printf %q "$got"), expected $(printf %q "$text")")
    fi
  done

  snapshot_all "$STATE/row.after" "$fx"
  local before=$STATE/$fx/snapshot
  { comm -23 "$before" "$STATE/row.after" | sed 's/ / -/'
    comm -13 "$before" "$STATE/row.after" | sed 's/ / +/'; } |
    awk -v wild="$wild" '{ if (index(wild, " " $1 " ") == 0) print }' | sort > "$STATE/row.actual"
  sort -o "$expected" "$expected"
  while IFS= read -r line; do problems+=("unexpected: $line"); done < <(comm -23 "$STATE/row.actual" "$expected" | cat -v)
  while IFS= read -r line; do problems+=("missing:    $line"); done < <(comm -13 "$STATE/row.actual" "$expected" | cat -v)

  if [ ${#problems[@]} -gt 0 ]; then
    fail "$label"
    printf '    %s\n' "${problems[@]}" >&2
    [ ! -s "$ERR" ] || head -c 600 "$ERR" | cat -v | sed 's/^/    stderr| /' >&2
  fi
}

# lock_held_run PATH STORE COMMAND...: runs COMMAND while this script holds the lock mailrig
# takes for PATH; fails unless COMMAND waits for it with STORE unchanged. COMMAND's streams are
# in $OUT and $ERR and its status in STATUS once the lock went.
lock_held_run() {
  local path=$1 store=$2 before pid lockfd
  shift 2
  before=$(snapshot "$store")
  exec {lockfd}>"/var/lock/files/$(printf %s "$path" | md5sum | cut -d' ' -f1)"
  flock "$lockfd"
  "$@" >"$OUT" 2>"$ERR" {lockfd}>&- &
  pid=$!
  # Only our lock can hold it up; the kernel names the wait.
  for _ in $(seq 100); do [[ $(cat "/proc/$pid/wchan" 2>/dev/null) == *lock*wait* ]] && break; sleep 0.1; done
  checks=$((checks + 2))
  [[ $(cat "/proc/$pid/wchan" 2>/dev/null) == *lock*wait* ]] || fail "${1##*/} did not wait for the lock of $path"
  [ "$(snapshot "$store")" = "$before" ] || fail "$store changed while the lock of $path was held"
  exec {lockfd}>&-
  STATUS=0; wait "$pid" || STATUS=$?
}

# --- a stand-in over Postfix's tools ---------------------------------------------------------

# postmap_spy [TOOL...]: puts a stand-in over postmap (or the tools named) that, for the runs
# mailrig makes (not the snapshots'), logs the arguments to $SPY/log, the number of password
# variables it sees to $SPY/env and its open descriptors to $SPY/fds, and fails the run
# numbered in $SPY/fail (and every later one when $SPY/after exists). `spy FIXTURE [K [after]]`
# builds the fixture first (its own runs neither fail nor count), then forgets the logged runs;
# with K the K-th run of the next command fails (with "after" that run and every later one).
# `spy_off` lets every run succeed again.
postmap_spy() {
  SPY=$MAILRIG_SANDBOX_ROOT/spy
  mkdir -p "$SPY"
  local tool
  for tool in "${@:-postmap}"; do
    cp "/usr/sbin/$tool" "$SPY/$tool.real"
    cat > "$SPY/$tool" <<EOF
#!/bin/bash
if [ "\$(readlink /proc/\$PPID/exe)" = "$(readlink -f "$MAILRIG")" ]; then
  printf '%s\n' "\$*" >> $SPY/log
  env | grep -c '^ZVT_' >> $SPY/env
  ls /proc/\$\$/fd >> $SPY/fds  # (a pipe or a command substitution would open descriptors here)
  n=\$(wc -l < $SPY/log) fail=\$(cat $SPY/fail 2>/dev/null)
  if [ -n "\$fail" ] && { [ "\$n" = "\$fail" ] || { [ -e $SPY/after ] && [ "\$n" -gt "\$fail" ]; }; }; then
    case " \$* " in *' -i '*|*' -d - '*) cat > /dev/null ;; esac
    echo "$tool: fatal: injected failure" >&2
    exit 1
  fi
fi
exec $SPY/$tool.real "\$@"
EOF
    chmod 755 "$SPY/$tool" && mount --bind "$SPY/$tool" "/usr/sbin/$tool"
  done
}
spy() {
  spy_off; use_fixture "$1"
  rm -f "$SPY/log" "$SPY/env" "$SPY/fds" "$SPY/fail" "$SPY/after"
  [ -z "${2:-}" ] || echo "$2" > "$SPY/fail"
  [ -z "${3:-}" ] || touch "$SPY/after"
}
spy_off() { rm -f "$SPY/fail" "$SPY/after"; }

# --- the prepared server ---------------------------------------------------------------------

# A stand-in for Postfix's address rewriting daemon, which the domain commands interrupt: any
# process whose program is at that path.
STANDIN=/usr/lib/postfix/trivial-rewrite
start_standin() {
  # A background job starts with SIGINT ignored; the daemon would not ignore it.
  env --default-signal=INT "$STANDIN" infinity </dev/null >/dev/null 2>&1 &
  STANDIN_PID=$!
  # Until it has become the daemon's program, a command looking for the daemon would miss it.
  local tries=500
  while [ "$(readlink "/proc/$STANDIN_PID/exe")" != "$STANDIN" ] && [ $((tries -= 1)) -gt 0 ]; do sleep 0.01; done
}
if [ ! -e "$STANDIN" ]; then
  # Debian keeps the daemons elsewhere: give the path a file of its own in an overlay.
  layer=$MAILRIG_SANDBOX_ROOT/postfix-lib
  mkdir -p "$layer" && mount -t tmpfs -o mode=0755 mailrig-postfix-lib "$layer"
  mkdir -p "$layer/upper" "$layer/work"
  mount -t overlay overlay -o "lowerdir=/usr/lib/postfix,upperdir=$layer/upper,workdir=$layer/work" /usr/lib/postfix
  cp /usr/bin/sleep "$STANDIN"
else
  cp /usr/bin/sleep "$MAILRIG_SANDBOX_ROOT/standin" && mount --bind "$MAILRIG_SANDBOX_ROOT/standin" "$STANDIN"
fi
start_standin

PANEL_TABLES=
if [ -z "${ROWS_NO_PANEL:-}" ]; then
  "$mdb" start >/dev/null || { echo "rows.sh: the panel database did not start" >&2; exit 1; }
  trap '"$mdb" stop >/dev/null' EXIT
  PANEL_TABLES=$(panel "SELECT table_name FROM information_schema.tables WHERE table_schema='zvt' ORDER BY 1")
fi
# A panel installation names its mail root in its configuration file.
printf 'QUELT_MAILNAMES_D %s\n' "$ROOT" > /etc/zvt/zvt.conf
save_state bare
