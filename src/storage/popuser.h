// The system user that owns every mailbox file and directory.
#pragma once

#include <sys/types.h>

namespace quelt::mail {

constexpr const char* kMailOwner = "popuser";

// Looks popuser up in the system's password database; false (errno as left by the lookup,
// 0 when the user simply does not exist) when it is missing.
bool lookupMailOwner(uid_t& uid, gid_t& gid);

}  // namespace quelt::mail
