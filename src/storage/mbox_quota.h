// Mailbox quotas by domain and mailname: attachments are charged against the quota, domain
// defaults come from the panel database. Results: 1 success, 0 failure (printed by messlog2).
#pragma once

#include <string>

// Writes the mailbox's maildirsize with the quota (negative: no limit) less the size of its
// @attachments folder; a folder bigger than the quota leaves a one-byte limit.
int store_mbox_quota(const std::string& domain, const std::string& mailname, long long quota);

// store_mbox_quota with the domain's "mbox_quota" limit from the panel database (the webspace's
// limit for a domain inside one; a missing or unparsable value is no limit). A failed limit
// query fails.
int rm_mbox_quota(const std::string& domain, const std::string& mailname);

// store_mbox_quota for every mailbox of the domain (panel database) without a quota of its own
// (-1 or not a number); the first failure stops and fails. The "rm_" forms use -1.
int store_default_mbox_quota(const std::string& domain, long long quota);
int store_domain_quota(const std::string& domain, long long quota);
int rm_default_mbox_quota(const std::string& domain);
int rm_domain_quota(const std::string& domain);

// Bytes used by the mailbox: its @attachments folder plus its Maildir usage. Ends the process
// (status 1) when the domain cannot be converted, the path is too long or the usage fails.
long long get_mbox_size(const std::string& mailname, const std::string& domain, bool inBlocks);
