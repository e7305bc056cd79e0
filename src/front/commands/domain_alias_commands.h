// The domain alias commands, which carry a domain's records, password rows, mail handlers and
// DomainKey to a second name, and the DomainKey commands.
#pragma once

namespace quelt::mail::postfix::mailrig_commands {

int addDomainAlias(int argc, char* argv[]);
int removeDomainAlias(int argc, char* argv[]);
int renameDomainAlias(int argc, char* argv[]);
int setDomainKey(int argc, char* argv[]);
int removeDomainKey(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands
