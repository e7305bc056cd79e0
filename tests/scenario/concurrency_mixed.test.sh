# Mixed concurrent commands on two domains lose nothing: eight processes add and remove mailnames
# and their aliases, add and rename domain aliases, add and drop sender transports and domains of
# their own, while a third domain is turned off and on, for a bounded time; afterwards every record a command
# reported as done is there, and none that a command removed.
. "$MAILRIG_TESTS/scenario/rows.sh"
use_fixture fresh
# The transport commands restart Postfix through its init script.
printf '#!/bin/sh\nexit 0\n' > /etc/init.d/postfix && chmod 755 /etc/init.d/postfix
key() { postmap -q "$1" "hash:$Q/$2" >/dev/null 2>&1 && echo yes || echo no; }

# The mailname commands read each domain's mailbox limit from the panel.
panel "INSERT INTO domains (id, name) VALUES (1, 'a.test'), (2, 'b.test'), (3, 'c.test')"
for d in a.test b.test c.test; do "$MAILRIG" --add-domain --domain-name=$d >/dev/null 2>&1 || fail "add $d"; done
"$MAILRIG" --add-mailname --domain-name=c.test --mailname=box >/dev/null 2>&1 || fail "add box@c.test"
"$MAILRIG" --add-alias --domain-name=c.test --mailname=box --alias=other >/dev/null 2>&1 || fail "alias other@c.test"
awk 'BEGIN { for (i = 0; i < 3000; i++) printf "u%d@base.test a%d@x.example\n", i, i }' | postmap -i "hash:$Q/virtual"
LOG=$MAILRIG_SANDBOX_ROOT/done
: > "$LOG"
deadline=$(( $(date +%s) + 60 ))

# One line per command that reported success: "<what> <domain> <name>".
ok() { local what=$1 d=$2 name=$3; shift 3; "$MAILRIG" "$@" >/dev/null 2>&1 && echo "$what $d $name" >> "$LOG"; }
# Worker i on a.test (odd) or b.test (even): mailname m<i>-<n> with alias a<i>-<n>; every fourth
# mailname is renamed to r<i>-<n> (a rewrite of whole tables), and of the others every second
# pair is removed again, alias first, after the next one was added.
worker() {
  local i=$1 d n p
  d=$([ $((i % 2)) -eq 1 ] && echo a.test || echo b.test)
  for ((n = 1; n <= 12 && $(date +%s) < deadline; n++)); do
    ok mailname+ $d m$i-$n --add-mailname --domain-name=$d --mailname=m$i-$n
    ok alias+ $d a$i-$n@m$i-$n --add-alias --domain-name=$d --mailname=m$i-$n --alias=a$i-$n
    if [ $((n % 4)) -eq 1 ] &&
       "$MAILRIG" --rename-mailname --domain-name=$d --old-mailname=m$i-$n --new-mailname=r$i-$n >/dev/null 2>&1; then
      printf 'mailname- %s m%s\nmailname+ %s r%s\n' $d $i-$n $d $i-$n >> "$LOG"
    fi
    p=$((n - 1))
    if [ $((n % 2)) -eq 0 ] && [ $((p % 4)) -ne 1 ]; then
      ok alias- $d a$i-$p@m$i-$p --remove-alias --domain-name=$d --mailname=m$i-$p --alias=a$i-$p
      ok mailname- $d m$i-$p --remove-mailname --domain-name=$d --mailname=m$i-$p
    fi
    # Workers 1 and 5 add a domain alias of a.test each round and rename every second one;
    # workers 2 and 6 send a domain through their own address and drop every second one again.
    if [ $((i % 4)) -eq 1 ]; then
      ok dalias+ $d da$i-$n.test --add-domain-alias --domain-name=$d --domain-alias-name=da$i-$n.test --set-reject
      if [ $((n % 2)) -eq 0 ] &&
         "$MAILRIG" --rename-domain-alias --domain-name=$d --old-domain-alias-name=da$i-$n.test \
           --new-domain-alias-name=dr$i-$n.test --set-reject >/dev/null 2>&1; then
        printf 'dalias- %s da%s.test\ndalias+ %s dr%s.test\n' $d $i-$n $d $i-$n >> "$LOG"
      fi
    elif [ $((i % 4)) -eq 2 ]; then
      ok transport+ $d t$i-$n.test --add-domain-to-sender-transport --domain-name=t$i-$n.test --ip4-addr=192.0.2.$i
      [ $((n % 2)) -eq 1 ] ||
        ok transport- $d t$i-$p.test --remove-domain-from-sender-transport --domain-name=t$i-$p.test
    elif [ $((i % 4)) -eq 3 ]; then
      # Workers 3 and 7 add a domain each round and remove every second one again.
      ok domain+ x x$i-$n.test --add-domain --domain-name=x$i-$n.test
      [ $((n % 2)) -eq 1 ] || ok domain- x x$i-$p.test --remove-domain --domain-name=x$i-$p.test
    fi
    # Every fourth worker also turns c.test off and on once a round.
    if [ $((i % 4)) -eq 0 ]; then
      ok off c.test - --turn-off-domain --domain-name=c.test
      ok on c.test - --turn-on-domain --domain-name=c.test
    fi
  done
}
pids=()
for i in $(seq 1 8); do worker "$i" & pids+=($!); done
for p in "${pids[@]}"; do wait "$p"; done

commands=$(wc -l < "$LOG")
lost=0
# What each mailname and alias should be after the last command on it that reported success.
declare -A want
while read -r what d name; do
  case $what in
    mailname+) want[$d/$name]=yes ;; mailname-) want[$d/$name]=no ;;
    alias+) want[$d/${name%@*}]=yes ;; alias-) want[$d/${name%@*}]=no ;;
    dalias+|transport+|domain+) want[$d/$name]=yes ;; dalias-|transport-|domain-) want[$d/$name]=no ;;
  esac
done < "$LOG"
for k in "${!want[@]}"; do
  d=${k%%/*} name=${k#*/}
  case $name in
    [mr]*) have=$([ -d "$ROOT/$d/$name" ] && echo yes || echo no) ;;
    a*) have=$(key "$name@$d" virtual) ;;
    d*) have=$(key "$name" virtual) ;;
    t*) have=$(key "@$name" sdd_transport_maps) ;;
    # A domain and its standard addresses come and go together.
    x*) have=$(key "$name" virtual_domains)
        [ "$(key "postmaster@$name" virtual)" = "$have" ] || have=half ;;
  esac
  [ "$have" = "${want[$k]}" ] || { lost=$((lost + 1)); echo "$k: wanted ${want[$k]}, found $have" >&2; }
done
echo "$commands commands reported done; $lost records lost or left behind"
expect_eq "$lost" 0 "records lost or left behind"
expect_eq "$([ "$commands" -ge 150 ] && echo enough)" enough "commands that completed ($commands)"
expect_eq "$(key other@c.test virtual)$(key c.test virtual_domains)" yesyes "c.test on, its alias back"
expect_eq "$(postmap -s "hash:$Q/virtual" | grep -c '@base\.test	')" 3000 "records no command touched"
# Each worker's transport is one service, however many commands wrote it at once.
expect_eq "$(grep -cE '^192\.0\.2\.[26]- unix ' /etc/postfix/master.cf)" 2 "the workers' transport services"
expect_eq "$(ls -A $Q | grep -c '\.tmp\.')" 0 "files a rewrite left beside the tables"
finish
