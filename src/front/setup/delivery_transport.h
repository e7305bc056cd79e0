// The Postfix side of mailrig's delivery agent: the pipe transport in master.cf that runs it for
// every mailbox recipient, and the main.cf settings that route mailbox mail through it.
#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace quelt::mail::postfix::setup {

// The master.cf service name of the transport.
constexpr const char* kDeliveryTransport = "mailrig";

// Where the agent is installed (set at build time).
std::string deliveryAgentPath();

// The master.cf line of the transport, for `agent`.
std::string deliveryTransportLine(const std::string& agent);

// The main.cf settings the transport needs: name and value.
std::vector<std::pair<std::string, std::string>> deliveryMainCfSettings();

// Writes the master.cf entry unless it is already there as wanted; says the change on `out`
// and counts it. Warns (no change) when the agent is not installed.
void ensureDeliveryTransport(std::ostream& out, int& changes);

}  // namespace quelt::mail::postfix::setup
