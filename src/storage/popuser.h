// The system user that owns every mailbox file and directory.
#pragma once

#include <sys/types.h>

#include "runtime/launch.h"

namespace quelt::mail {

constexpr const char* kMailOwner = "popuser";

// popuser's uid and primary gid; false (errno set, ENOENT when it does not exist) when missing.
inline bool lookupMailOwner(uid_t& uid, gid_t& gid)
{
    return quelt_ugid(kMailOwner, &uid, &gid) == 0;
}

}  // namespace quelt::mail
