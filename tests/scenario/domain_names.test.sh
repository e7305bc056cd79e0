# Hostile and odd domain names and quotas through the five domain commands: each is refused with
# a clear error before any store changes, or acts on the one lower-case ASCII name it stands for.
. "$MAILRIG_TESTS/scenario/rows.sh"

hosted_state() {
  mailrig_ok --add-domain --domain-name=base.test
  panel "INSERT INTO domains (id, name) VALUES (1, 'base.test'); INSERT INTO mail (id, mail_name, dom_id, mbox_quota) VALUES (10, 'info', 1, -1);"
  passwd_sql "INSERT INTO domains (name, status) VALUES ('base.test', 0);
              INSERT INTO users (dom_id, name, status) SELECT id, 'info', 0 FROM domains WHERE name='base.test';"
  handlers_sql "INSERT INTO handlers VALUES (1, 1, 1, 10, 'h', 'info@base.test', '/bin/true', 'none');"
  mkdir -p /var/qmail/mailnames/base.test/info/Maildir/{cur,new,tmp}
  chown -R popuser:popuser /var/qmail/mailnames/base.test
}
fixture hosted hosted_state

refused=(
  "‥/‥/‥/etc/victim" "․․" "‥"
  . .. ... / /etc /etc/victim ../etc ../../etc/victim base.test/ base.test/info ./base.test
  base.test/.. 'base.test/../..' '~root'
  $'inj.test\nroot@base.test attacker@evil.example' $'base.test\n' $'\nbase.test' $'a.test\rb.test'
  'gmail.com hijack' ' base.test' 'base.test ' $'tab\there.test' $'base.test\t'
  '"q.test' "q'.test" 'q\.test' '#x.test' 'x#.test' '$(reboot).test' '`id`.test' 'a;b.test'
  'a|b.test' 'a&b.test' 'a*b.test' 'a?b.test' 'a%b.test' 'a_b.test' 'a@b.test' 'a:b.test'
  'a,b.test' 'a=b.test' 'a+b.test' 'a!b.test' '[::1]' 'a/b' '@base.test' 'info@base.test'
  $'\x01a.test' $'a\x1f.test' $'a\x7f.test' $'a\x1b[31m.test' $'\xff.test' $'b\xc3.test' $'\xc0\xae\xc0\xae'
  -x.test x-.test base.test. .base.test base..test 'xn--.test'
  "$(printf 'a%.0s' {1..64}).test" "$(printf 'abcdefghi.%.0s' {1..25})test"
  -- --help '-'
)
# Every value through the two commands that create and delete trees; every fourth through the
# others, which share the same parse.
for cmd in --add-domain --remove-domain --turn-on-domain --turn-off-domain --set-domain-disk-quota; do
  extra=(); [ "$cmd" = --set-domain-disk-quota ] && extra=(--disk-quota=5)
  step=1; case $cmd in --turn-*|--set-*) step=4 ;; esac
  for ((i = 0; i < ${#refused[@]}; i += step)); do
    row hosted 1 'stderr ~ Fatal error: (std::invalid_argument\(invalid domain name|quelt::idn::IdnaError)' \
      "$cmd" "--domain-name=${refused[i]}" "${extra[@]}"
  done
  # An empty name given as a word of its own (attached to "=" it is an option error).
  row hosted 1 "stderr ~ Fatal error: std::invalid_argument\\(invalid domain name ''\\)" "$cmd" --domain-name '' "${extra[@]}"
done

# Quotas outside a signed 64-bit number, or not a number, are option errors.
for q in 9223372036854775808 -9223372036854775809 99999999999999999999 abc 1e5 '' ' 5' 5k 0x10; do
  row hosted 1 "stderr ~ option '--disk-quota'" --set-domain-disk-quota --domain-name=base.test "--disk-quota=$q"
  row hosted 1 "stderr ~ option '--disk-quota'" --add-domain --domain-name=new.test "--disk-quota=$q"
done

# Another spelling of a name acts on the one lower-case ASCII name it stands for.
std_lines() { # the standard addresses of $1 as snapshot lines with a sign
  for w in anonymous drweb kluser mailer-daemon postmaster root; do
    printf 'virtual %s%s@%s\t%s@localhost.localdomain\n' "$1" "$w" "$2" "$w"
  done
}
added="virtual_domains +new.test	new.test/
$(std_lines + new.test)
tree +new.test/ popuser:popuser 750
signals +trivial-rewrite INT"
for spelling in NEW.TEST New.Test "new｡test" "ｎｅｗ.test" "NEW．TEST" \
    $'ne\xc2\xadw.test'; do
  row hosted 0 "$added" --add-domain "--domain-name=$spelling"
done
# A slash look-alike is a letter to IDNA: the name becomes one harmless punycode label.
row hosted 0 "virtual_domains +xn--basetest-h03d	xn--basetest-h03d/
$(std_lines + xn--basetest-h03d)
tree +xn--basetest-h03d/ popuser:popuser 750
signals +trivial-rewrite INT" --add-domain "--domain-name=base⁄test"

removed="virtual_domains -base.test	base.test/
$(std_lines - base.test)
tree *
passwd *
handlers -handlers|1|1|1|10|h|info@base.test|/bin/true|none"
for spelling in BASE.TEST Base.Test "ｂａｓｅ.test"; do
  row hosted 0 "$removed" --remove-domain "--domain-name=$spelling"
done

[ ! -e /etc/victim ] || fail "a hostile name reached /etc/victim"
[ -d /var/qmail/mailnames ] || fail "the mail root is gone"
finish
