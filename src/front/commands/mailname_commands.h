// The mailname and mailbox commands: add, remove and rename a mailname, switch its mailbox on
// and off, set its password and quota, report its size.
#pragma once

namespace quelt::mail::postfix::mailrig_commands {

int addMailname(int argc, char* argv[]);
int removeMailname(int argc, char* argv[]);
int renameMailname(int argc, char* argv[]);
int addMailbox(int argc, char* argv[]);
int removeMailbox(int argc, char* argv[]);
int setPassword(int argc, char* argv[]);
int setMailboxDiskQuota(int argc, char* argv[]);
int getMailboxSize(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands
