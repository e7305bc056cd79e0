// The host's fully qualified name, for the host-name entry of the alias table.
#pragma once

#include <string>

namespace quelt::mail {

// The system host name when it has a dot; else host name "." domain name (getdomainname) when
// that is set; else the first of /etc/HOSTNAME, /etc/hostname whose content has a dot. 0, or
// -1 after a message in the product log (the name is then empty).
int get_hostname_fqdn(std::string& name);

}  // namespace quelt::mail
