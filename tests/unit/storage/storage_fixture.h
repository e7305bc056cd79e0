// Helpers of the storage tests: the sandbox's mail owner, file modes, and maildirsize lines.
#pragma once

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/io.h"

namespace storage_test {

const std::string kRoot = "/var/qmail/mailnames";

struct Owner {
    uid_t uid;
    gid_t gid;
};

// popuser and its primary group as the sandbox created them.
inline Owner popuser()
{
    const struct passwd* pw = ::getpwnam("popuser");
    const struct group* gr = ::getgrnam("popuser");
    EXPECT_NE(pw, nullptr);
    EXPECT_NE(gr, nullptr);
    EXPECT_EQ(pw->pw_gid, gr->gr_gid) << "popuser's primary group is popuser";
    return {pw->pw_uid, gr->gr_gid};
}

// Owner popuser, its group, and `mode`: "ok", or what differs.
inline std::string popuserOwns(const std::string& path, mode_t mode)
{
    const Owner owner = popuser();
    const struct stat st = lstatOf(path);
    if (st.st_uid != owner.uid || st.st_gid != owner.gid)
        return path + " owned by " + std::to_string(st.st_uid) + ":" + std::to_string(st.st_gid);
    if ((st.st_mode & 07777) != mode)
        return path + " has mode " + std::to_string(st.st_mode & 07777);
    return "ok";
}

// A maildirsize usage line.
inline std::string usageLine(long long bytes, unsigned long long count)
{
    char line[32];
    std::snprintf(line, sizeof line, "%12lld%12llu\n", bytes, count);
    return line;
}

const std::string kEmptyUsage = usageLine(0, 0);

}  // namespace storage_test
