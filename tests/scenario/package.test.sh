# The Debian package as CPack builds it from this tree: the programs, pages and completion at
# their standard paths, nothing under /etc or /var, every shared library the programs load
# declared with the mail programs they drive, and no maintainer script that touches the mail
# configuration (mailrig-setup stays the admin's step).
. "$MAILRIG_TESTS/scenario/lib.sh"
pkg=/tmp/package
(cd "$MAILRIG_BUILD" && cpack -G DEB -B "$pkg" >"$pkg.log" 2>&1) || fail "cpack failed: $(tail -5 "$pkg.log")"
deb=$(ls "$pkg"/mailrig_*.deb)

dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { print $6 }' | sed 's/^\.//' | sort > /tmp/files
expect_eq "$(grep -E '^/usr/(sbin|share/man|share/bash-completion)/' /tmp/files)" "/usr/sbin/mailrig
/usr/sbin/mailrig-setup
/usr/share/bash-completion/completions/mailrig
/usr/share/bash-completion/completions/mailrig-setup
/usr/share/man/man8/mailrig-setup.8.gz
/usr/share/man/man8/mailrig.8.gz" "programs, pages and completion in the package"
expect_eq "$(grep -vE '^/usr/(sbin|lib/mailrig|share)/' /tmp/files)" "/usr/lib/tmpfiles.d/mailrig.conf" \
  "files outside /usr/sbin, /usr/lib/mailrig and /usr/share"

dpkg-deb -x "$deb" /tmp/root
# At boot systemd-tmpfiles makes the lock files' folder from the packaged entry.
if command -v systemd-tmpfiles >/dev/null; then
  systemd-tmpfiles --root=/tmp/root --create /tmp/root/usr/lib/tmpfiles.d/mailrig.conf 2>/dev/null
  [ -d /tmp/root/run/lock/files ] || fail "the tmpfiles entry does not make /run/lock/files"
fi
cmp -s /tmp/root/usr/share/man/man8/mailrig.8.gz "$MAILRIG_BUILD/packaging/mailrig.8.gz" ||
  fail "the packaged page is not the one generated from this build"

# Every library the programs need, by the host package that holds it, is a dependency.
depends=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/^ *//; s/ .*//')
for lib in $(for p in /tmp/root/usr/sbin/*; do readelf -d "$p"; done | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort -u); do
  path=$(ldconfig -p | awk -v l="$lib" '$1 == l { print $NF; exit }')
  # With /lib merged into /usr/lib, dpkg knows a library under either name.
  owner=$({ dpkg -S "$path" || dpkg -S "/usr$path"; } 2>/dev/null | head -1 | cut -d: -f1)
  # A dependency may name the owner itself or a name it provides (libboost-regex1.74.0-icu72).
  provides=$(dpkg-query -W -f='${Provides}' "${owner:-?}" 2>/dev/null | tr ',' '\n' | sed 's/^ *//; s/ .*//')
  checks=$((checks + 1))
  grep -qxF -f <(printf '%s\n' "${owner:-?}" $provides) <<<"$depends" ||
    fail "$lib (${owner:-no package}) is not among the dependencies: $depends"
done
for program in postfix courier-imap maildrop; do
  checks=$((checks + 1))
  grep -qx "$program" <<<"$depends" || fail "$program is not among the dependencies"
done
# Each dependency is a package of this Debian release.
for p in $depends; do
  checks=$((checks + 1))
  dpkg-query -W "$p" >/dev/null 2>&1 || [ -n "$(apt-cache policy "$p" 2>/dev/null)" ] ||
    fail "no Debian package named $p"
done

# Maintainer scripts: none may run mailrig-setup, a Postfix tool, or write the mail stores.
dpkg-deb -e "$deb" /tmp/control
for script in preinst postinst prerm postrm config triggers; do
  [ -e "/tmp/control/$script" ] || continue
  checks=$((checks + 1))
  ! grep -nE 'mailrig-setup|post(conf|map|alias|fix)|/etc/(postfix|zvt|courier)|/var/(spool/postfix|qmail|lib/quelt)' \
    "/tmp/control/$script" >&2 || fail "the $script script touches the mail configuration"
done
expect_eq "$(ls /tmp/control | grep -vxE 'control|md5sums|shlibs|preinst|postinst|prerm|postrm|triggers')" "" \
  "control files (conffiles would make the package own configuration)"

finish
