// Lookup of the mailbox owner.
#include "storage/popuser.h"

#include <pwd.h>

#include <cerrno>
#include <vector>

namespace quelt::mail {

bool lookupMailOwner(uid_t& uid, gid_t& gid)
{
    struct passwd entry;
    struct passwd* found = nullptr;
    std::vector<char> buffer(16384);
    int rc;
    while ((rc = ::getpwnam_r(kMailOwner, &entry, buffer.data(), buffer.size(), &found)) == ERANGE)
        buffer.resize(buffer.size() * 2);
    if (rc != 0 || found == nullptr) {
        errno = rc;
        return false;
    }
    uid = entry.pw_uid;
    gid = entry.pw_gid;
    return true;
}

}  // namespace quelt::mail
