// The alias, redirect and autoresponder commands of a mailname: mail aliases sharing its
// mailbox, password and handlers, forwarding lines in its .qmail file, and the autoresponder
// handler.
#pragma once

namespace quelt::mail::postfix::mailrig_commands {

int addAlias(int argc, char* argv[]);
int removeAlias(int argc, char* argv[]);
int addRedirect(int argc, char* argv[]);
int removeRedirect(int argc, char* argv[]);
int addAutoresponder(int argc, char* argv[]);
int removeAutoresponder(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands
