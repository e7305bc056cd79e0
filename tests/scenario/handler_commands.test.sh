# The handler commands against the real handlers database: the rows each command adds, removes
# or switches, the mandatory address, and free text that reaches the database only as data.
ROWS_NO_PANEL=1  # no command here reads the panel database
. "$MAILRIG_TESTS/scenario/rows.sh"

H='--handler-name=spam --handler-type=recipient'
BASE='--add-handler --handler-name=filter --priority=50'
ADD="$BASE --executable=/usr/bin/filter --context=ctx"

# Columns: queue, type, enabled, priority, name, address, executable, context. spam is registered
# for two addresses of example.com, one of other.test (off) and one of a subdomain, and for info
# before queueing too; virus is global; dom belongs to the domain example.com itself.
fixture hooks "handlers_sql \"
INSERT INTO handlers VALUES (2, 1, 1, 10, 'spam', 'info@example.com', '/usr/bin/spam', 'none');
INSERT INTO handlers VALUES (2, 1, 1, 10, 'spam', 'sales@example.com', '/usr/bin/spam', 'none');
INSERT INTO handlers VALUES (2, 1, 0, 10, 'spam', 'info@other.test', '/usr/bin/spam', 'none');
INSERT INTO handlers VALUES (2, 1, 1, 10, 'spam', 'info@sub.example.com', '/usr/bin/spam', 'none');
INSERT INTO handlers VALUES (1, 1, 1, 10, 'spam', 'info@example.com', '/usr/bin/spam', 'none');
INSERT INTO handlers VALUES (1, 4, 1, 20, 'virus', 'all', '/usr/bin/scan', 'none');
INSERT INTO handlers VALUES (2, 3, 1, 30, 'dom', 'example.com', '/usr/bin/dom', 'none');\""

# --- add
row hooks 0 'handlers +handlers|2|1|1|50|filter|info@example.com|/usr/bin/filter|ctx' \
  $ADD --handler-type=recipient --handler-type-name=info@example.com --hook=before-local
row hooks 0 'handlers +handlers|3|2|1|50|filter|example.com|/usr/bin/filter|ctx' \
  $ADD --handler-type=sender-domain --handler-type-name=Example.COM --hook=before-remote
row hooks 0 'handlers +handlers|2|1|1|50|filter|info@xn--bcher-kva.example|/usr/bin/filter|ctx' \
  $ADD --handler-type=recipient --handler-type-name=Info@bücher.example --hook=before-local
# a global handler without an address, or with an empty one, is registered for all of them
row hooks 0 'handlers +handlers|1|4|1|50|filter|all|/usr/bin/filter|ctx' $ADD --handler-type=global --hook=before-queue
row hooks 0 'handlers +handlers|1|4|1|50|filter|all|/usr/bin/filter|ctx' \
  $ADD --handler-type=global --handler-type-name '' --hook=before-queue
row hooks 0 'handlers +handlers|1|4|1|50|filter|all-recipients|/usr/bin/filter|ctx' \
  $ADD --handler-type=global --handler-type-name=all-recipients --hook=before-queue
row hooks 1 '' $ADD --handler-type=global --handler-type-name=info@example.com --hook=before-queue
# the same handler again replaces its row; a priority that is no number is 0
row hooks 0 '
handlers -handlers|2|1|1|10|spam|info@example.com|/usr/bin/spam|none
handlers +handlers|2|1|1|0|spam|info@example.com|/usr/bin/spam|none' \
  --add-handler $H --handler-type-name=info@example.com --executable=/usr/bin/spam --context=none \
  --hook=before-local --priority=high
# type and hook names outside the tables are stored as the unknown values
row hooks 0 'handlers +handlers|4|5|1|50|filter|info@example.com|/usr/bin/filter|ctx' \
  $ADD --handler-type=bogus --handler-type-name=info@example.com --hook=after-lunch
row hooks 1 'stderr = mandatory option "--handler-type-name" is not specified
stdout ~ ^Usage: --add-handler --handler-name=<name> --handler-type=\(global\|sender\|recipient\|sender-domain\|recipient-domain\) \[--handler-type-name=<mailname>\] --executable=<handler> --context=<context> --hook=\(before-queue\|before-local\|before-remote\) --priority=<number>$' \
  $ADD --handler-type=recipient --hook=before-local
row hooks 1 'stderr ~ ^mandatory option "--priority" is not specified$' \
  --add-handler --handler-name=f --handler-type=global --executable=/bin/f --context=c --hook=before-queue

# Shell metacharacters in the executable and context are data: stored byte for byte, never run.
row hooks 0 'handlers +handlers|2|1|1|50|x;y|info@example.com|/bin/sh -c "touch /tmp/pwned"; $(touch /tmp/pwned) `id`|a'"'"' OR '"'"'1'"'"'='"'"'1' \
  --add-handler '--handler-name=x;y' --handler-type=recipient --handler-type-name=info@example.com \
  '--executable=/bin/sh -c "touch /tmp/pwned"; $(touch /tmp/pwned) `id`' "--context=a' OR '1'='1" \
  --hook=before-local --priority=50
expect_eq "$([ -e /tmp/pwned ] && echo ran || echo never)" "never" "the executable never ran"
# a line break in any stored text, or an address that is no address, is refused (in every text
# option and address: hostile inputs; here the message)
nl=$(printf 'a\nb')
row hooks 1 'stderr ~ invalid handler executable '"'"'a\\x0ab'"'" $BASE --handler-type=global --hook=before-queue --context=c --executable="$nl"
row hooks 1 'stderr ~ invalid domain name' $ADD --handler-type=recipient-domain --handler-type-name=example.com/x --hook=before-local
row hooks 1 'stderr ~ invalid mail address' --remove-handler $H --handler-type-name="info@example.com'--" --hook=before-local

# --- remove: one address, or every address of the handler's name, type and hook
row hooks 0 'handlers -handlers|2|1|1|10|spam|info@example.com|/usr/bin/spam|none' \
  --remove-handler $H --handler-type-name=INFO@example.com --hook=before-local
row hooks 0 '
handlers -handlers|2|1|1|10|spam|info@example.com|/usr/bin/spam|none
handlers -handlers|2|1|1|10|spam|sales@example.com|/usr/bin/spam|none
handlers -handlers|2|1|0|10|spam|info@other.test|/usr/bin/spam|none
handlers -handlers|2|1|1|10|spam|info@sub.example.com|/usr/bin/spam|none' \
  --remove-handler $H --handler-type-name=all --hook=before-local
row hooks 0 'handlers -handlers|1|4|1|20|virus|all|/usr/bin/scan|none' \
  --remove-handler --handler-name=virus --handler-type=global --hook=before-queue
row hooks 0 '' --remove-handler $H --handler-type-name=nobody@example.com --hook=before-local
row hooks 1 'stderr = mandatory option "--handler-type-name" is not specified' --remove-handler $H --hook=before-local

# --- enable and disable
# a domain switches its addresses and its own handlers, not a subdomain's nor another domain's
row hooks 0 '
handlers -handlers|2|1|1|10|spam|info@example.com|/usr/bin/spam|none
handlers +handlers|2|1|0|10|spam|info@example.com|/usr/bin/spam|none
handlers -handlers|1|1|1|10|spam|info@example.com|/usr/bin/spam|none
handlers +handlers|1|1|0|10|spam|info@example.com|/usr/bin/spam|none
handlers -handlers|2|1|1|10|spam|sales@example.com|/usr/bin/spam|none
handlers +handlers|2|1|0|10|spam|sales@example.com|/usr/bin/spam|none
handlers -handlers|2|3|1|30|dom|example.com|/usr/bin/dom|none
handlers +handlers|2|3|0|30|dom|example.com|/usr/bin/dom|none' \
  --disable-handler $H --handler-type-name=example.com --hook=before-local
row hooks 0 '
handlers -handlers|2|1|1|10|spam|sales@example.com|/usr/bin/spam|none
handlers +handlers|2|1|0|10|spam|sales@example.com|/usr/bin/spam|none' \
  --disable-handler $H --handler-type-name=sales@example.com --hook=before-local
# "all" switches the name everywhere, whatever its type and hook
row hooks 0 '
handlers -handlers|2|1|0|10|spam|info@other.test|/usr/bin/spam|none
handlers +handlers|2|1|1|10|spam|info@other.test|/usr/bin/spam|none' \
  --enable-handler --handler-name=spam --handler-type=sender --handler-type-name=all --hook=before-data
row hooks 0 '
handlers -handlers|1|4|1|20|virus|all|/usr/bin/scan|none
handlers +handlers|1|4|0|20|virus|all|/usr/bin/scan|none' \
  --disable-handler --handler-name=virus --handler-type=global --hook=before-queue
row hooks 1 'stderr = mandatory option "--handler-type-name" is not specified' --enable-handler $H --hook=before-local

# --- the retired commands only send the caller to the handler utility
row hooks 1 '
stderr = ERROR: this action is deprecated. Please use the hookwarden utlitity
stdout = ERROR: this action is deprecated. Please use the hookwarden utlitity' \
  --update-handler --handler-name=spam --handler-type=global --executable=/bin/x --context=c --hook=before-queue --priority=1
row hooks 1 '
stderr = ERROR: This action is deprecated. Please use the hookwarden utility
stdout = ERROR: This action is deprecated. Please use the hookwarden utility' \
  --check-handler $H --handler-type-name=info@example.com --hook=before-local

finish
