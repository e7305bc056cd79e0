# The attachment commands against a real mail tree: listing formats, replacing, removing, and
# names that would lead out of the mailbox's store.
ROWS_NO_PANEL=1  # no command here reads the panel database
. "$MAILRIG_TESTS/scenario/rows.sh"

R=/var/qmail/mailnames
A=$R/example.com/info/@attachments
LIST='--list-attachments --domain-name=example.com'
ADD='--add-attachment --domain-name=example.com --mailname=info --file-name=/tmp/upload.txt'

# The panel's upload, private to root until it is copied into a store.
printf 'uploaded\n' > /tmp/upload.txt && chmod 600 /tmp/upload.txt
passwd_sum=$(sha1sum /etc/passwd)

# info: one attachment and a folder inside its store; sales: a 1000-byte one and an empty one;
# nostore: a mailname whose store is missing.
fixture boxes '
mailrig_ok --add-domain --domain-name=example.com
mkdir -p '$R'/example.com/{info,sales}/@attachments '$R'/example.com/nostore '$A'/folder
printf hello > '$A'/a.txt && chmod 600 '$A'/a.txt
head -c 1000 /dev/zero | tr "\0" x > '$R'/example.com/sales/@attachments/big
: > '$R'/example.com/sales/@attachments/empty
chown -R popuser:popuser '$R'/example.com'

# --- listings: name and size, folders skipped, sorted by name
row boxes 0 'stdout = a.txt\t5' $LIST --mailname=info
row boxes 0 'stdout = '$A'/a.txt\t5' $LIST --mailname=info --fullname
row boxes 0 'stdout = big\t4096\nempty\t0' $LIST --mailname=sales --in-blocks
row boxes 0 'stdout = big\t1000\nempty\t0' $LIST --mailname=SALES
# every mailname of the domain; one without a store is reported and the listing goes on
row boxes 0 'stdout = a.txt\t5\nUnable to open dir '$R'/example.com/nostore/@attachments: No such file or directory\n\nSystem error 2: No such file or directory\nbig\t1000\nempty\t0' $LIST --mail-all
row boxes 1 'stdout ~ ^Unable to open dir '$R'/example.com/ghost/@attachments' $LIST --mailname=ghost
row boxes 1 'stderr = MailName empty for domain '"'"'example.com'"'"'' $LIST --mailname ''
# exactly one of --mailname and --mail-all
row boxes 1 '
stderr ~ ^you should not use --mailname and --mail-all together$
stderr ~ ^Usage: --list-attachments \[--in-blocks\] \[--fullname\] --domain-name=<domain_name> \(--mailname=<mail_name>\|--mail-all\)$
stdout ~ ^you should not use --mailname and --mail-all together$' $LIST --mailname=info --mail-all
row boxes 1 '
stderr ~ ^neither --mailname nor --mail-all are specified$
stderr ~ --mail-all +report attachments for all mailnames \(false by default\)
stdout ~ ^neither --mailname nor --mail-all are specified$' $LIST --in-blocks

# --- add: a new file is root's, mode 0644 whatever the upload's mode; a file of that name is
# replaced in place and also gets 0644
row boxes 0 '
tree +example.com/info/@attachments/new.txt root:root 644
files +example.com/info/@attachments/new.txt: uploaded' $ADD --attachment-file-name=new.txt
row boxes 0 '
tree -example.com/info/@attachments/a.txt popuser:popuser 600
tree +example.com/info/@attachments/a.txt popuser:popuser 644
files -example.com/info/@attachments/a.txt: hello
files -example.com/info/@attachments/a.txt: \ no newline at end
files +example.com/info/@attachments/a.txt: uploaded' $ADD --attachment-file-name=a.txt
row boxes 1 'stdout ~ ^Unable to copy the attachment file /tmp/missing.txt to '$A'/x.txt$' \
  --add-attachment --domain-name=example.com --mailname=info --file-name=/tmp/missing.txt --attachment-file-name=x.txt
# An upload of many blocks arrives whole; a missing one is reported with the reason.
seq 3000 > /tmp/upload-big.txt
row boxes 0 'tree +example.com/info/@attachments/big.txt root:root 644
files *' --add-attachment --domain-name=example.com --mailname=info --file-name=/tmp/upload-big.txt \
  --attachment-file-name=big.txt
expect_same_file $A/big.txt /tmp/upload-big.txt "an attachment of many blocks"
row boxes 1 'stderr ~ ^Unable to open file /tmp/missing.txt: No such file or directory$' \
  --add-attachment --domain-name=example.com --mailname=info --file-name=/tmp/missing.txt \
  --attachment-file-name=x.txt
row boxes 1 'stdout ~ ^Unable to copy the attachment file /tmp/upload.txt to '$R'/example.com/nostore/@attachments/x$' \
  --add-attachment --domain-name=example.com --mailname=nostore --file-name=/tmp/upload.txt --attachment-file-name=x

# --- remove; an attachment that is not there counts as removed
row boxes 0 '
tree -example.com/info/@attachments/a.txt popuser:popuser 600
files -example.com/info/@attachments/a.txt: hello
files -example.com/info/@attachments/a.txt: \ no newline at end' --remove-attachment --domain-name=example.com --mailname=info --attachment-file-name=a.txt
row boxes 0 'stdout = ' --remove-attachment --domain-name=example.com --mailname=info --attachment-file-name=gone.txt
row boxes 0 'stdout = ' --remove-attachment --domain-name=example.com --mailname=nostore --attachment-file-name=gone.txt
row boxes 1 'stdout ~ ^Unable to delete the attachment file '$A'/folder: ' \
  --remove-attachment --domain-name=example.com --mailname=info --attachment-file-name=folder

# --- names that would leave the store are refused before anything is touched (every class of
# them, in both commands: hostile inputs); the message shows the name as printable text
row boxes 1 "stderr ~ invalid attachment file name '\\.\\./new\\\\x0aline'" $ADD --attachment-file-name $'../new\nline'
row boxes 1 'stderr ~ ^Fatal error: std::invalid_argument\(\.\./info\)' $LIST --mailname=../info

# A store replaced by a link (its owner can do that) is never followed out of the mail tree.
fixture linked 'mkdir -p /tmp/outside && printf secret > /tmp/outside/keep &&
  mailrig_ok --add-domain --domain-name=example.com && mkdir -p '$R'/example.com/info &&
  ln -s /tmp/outside '$A' && chown -h popuser:popuser '$R'/example.com/info '$A''
row linked 1 'stdout ~ ^Unable to copy the attachment file' $ADD --attachment-file-name=keep
row linked 1 'stdout ~ ^Unable to delete the attachment file '$A'/keep: ' \
  --remove-attachment --domain-name=example.com --mailname=info --attachment-file-name=keep
expect_eq "$(ls /tmp/outside 2>&1; cat /tmp/outside/keep 2>&1)" "keep
secret" "the folder a store links to"

# Nothing the hostile rows ran reached a file outside the mail tree.
expect_eq "$(ls /tmp/x /etc/cron.d/x /var/qmail/x 2>/dev/null)" "" "files outside the mail tree"
expect_eq "$(sha1sum /etc/passwd)" "$passwd_sum" "/etc/passwd"

finish
