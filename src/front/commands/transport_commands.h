// The sender-transport commands: which source addresses a domain's outgoing mail leaves from.
#pragma once

namespace quelt::mail::postfix::mailrig_commands {

int addDomainToIpTransport(int argc, char* argv[]);
int removeDomainFromIpTransport(int argc, char* argv[]);
int removeIPTransport(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands
