// The checks a name passes at the command boundary, before it can reach a table record, a path
// or a command line. Every name the panel sends passes unchanged but for case; the rest is
// refused with std::invalid_argument, so it is reported like an invalid mailname (exit 1).
#pragma once

#include <string>

namespace quelt::names {

// The ASCII (IDNA) form of a domain name, folded to lower case: labels of letters, digits and
// inner hyphens, 1 to 63 bytes each, 253 bytes in all, none empty. Throws quelt::idn::IdnaError
// when libidn cannot convert the name, else std::invalid_argument "invalid domain name '<name>'".
std::string checkedDomain(const std::string& name);

// A mailname, or the local part of a mail alias, folded to lower case. Throws
// std::invalid_argument whose text is the name itself when is_mailname_valid refuses it.
std::string checkedMailname(const std::string& name);

// "local@domain" with exactly one "@", a local part by the mailname rule and a domain by
// checkedDomain; returns the folded, ASCII form. Throws quelt::idn::IdnaError or
// std::invalid_argument "invalid mail address '<address>'".
std::string checkedAddress(const std::string& address);

// True for an ASCII domain name that checkedDomain would return unchanged.
bool isCheckedDomain(const std::string& ascii);

// The value as a message shows it: bytes outside printable ASCII become "\xNN", so a refused
// name can neither break the report's line nor hide part of itself.
std::string printable(const std::string& value);

}  // namespace quelt::names
