// POP-before-SMTP outside main.cf: the milter's switch and the root crontab entry that expires
// the grants of the POP3 login hook.
#pragma once

// Turns the milter's switch on: the one line "pc_milter_pop_before_smtp=1" in
// /etc/sysconfig/zvt-pc-remote (an earlier setting of the switch is replaced; the file is made
// when missing). 0, or non-zero after printing why.
int enablePopAuth();
// Removes every line beginning with "pc_milter_pop_before_smtp"; a missing file is already
// off. 0, or non-zero after printing why.
int disablePopAuth();

// Puts the cleaner into root's crontab every `minutes` (at most 60, from a random start
// minute), replacing an entry already there; below 1 removes it. Other lines, comments about
// the cleaner included, stay. 0, or -1 after logging why; a crontab that cannot be read is
// never replaced.
int set_poplockdb_clean_period(int minutes);
