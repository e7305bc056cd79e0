// The lookup tables this system owns, by their Postfix names, and the titles used in reports.
#pragma once

namespace quelt::mail::postfix::tables {

inline constexpr const char* kVirtualDomains = "hash:/var/spool/postfix/quelt/virtual_domains";
inline constexpr const char* kVirtual = "hash:/var/spool/postfix/quelt/virtual";
inline constexpr const char* kVmailbox = "hash:/var/spool/postfix/quelt/vmailbox";
inline constexpr const char* kAliases = "hash:/var/spool/postfix/quelt/aliases";
inline constexpr const char* kSenderTransports = "hash:/var/spool/postfix/quelt/sdd_transport_maps";
inline constexpr const char* kBlacklists = "hash:/var/spool/postfix/quelt/blacklists";

inline constexpr const char* kVirtualDomainsTitle = "Postfix Virtual Domains Database";
inline constexpr const char* kVirtualTitle = "Postfix Virtual Aliases Database";
inline constexpr const char* kVmailboxTitle = "Postfix Virtual Mailboxes Database";

}  // namespace quelt::mail::postfix::tables
