// Helpers of the storage tests: the sandbox's mail owner, file modes and owners, small files.
#pragma once

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

#include <boost/filesystem.hpp>
#include <gtest/gtest.h>

namespace storage_test {

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

inline struct stat lstatOf(const std::string& path)
{
    struct stat st {};
    EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
    return st;
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    ASSERT_TRUE(out.good()) << path;
}

inline mode_t currentUmask()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

}  // namespace storage_test
