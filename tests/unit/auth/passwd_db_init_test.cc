// Creation of the password database and key at the system paths (run inside the sandbox).
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>

#include "auth/passwd_db.h"
#include "passwd_fixture.h"

namespace {

// "user:group mode" of a path, e.g. "postfix:root 0460".
std::string ownerAndMode(const std::string& path)
{
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0)
        return "missing";
    const passwd* user = ::getpwuid(st.st_uid);
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", st.st_mode & 07777);
    return std::string(user ? user->pw_name : "?") + ":" + std::to_string(st.st_gid) + " " + mode;
}

std::string postfixGid()
{
    const passwd* postfix = ::getpwnam("postfix");
    return postfix ? std::to_string(postfix->pw_gid) : "no postfix user";
}

TEST(PasswdDbInit, PostfixStyleOwnersModesAndAFreshKey)
{
    ASSERT_EQ(mailAuthDBInitStyle(1), 0);
    EXPECT_EQ(mailAuthDBPath(), "/var/spool/postfix/quelt/passwd.db");
    EXPECT_EQ(ownerAndMode("/var/spool/postfix/quelt"), "postfix:" + postfixGid() + " 0770");
    EXPECT_EQ(ownerAndMode("/var/spool/postfix/quelt/passwd.db"), "postfix:0 0460");
    EXPECT_EQ(ownerAndMode("/var/spool/postfix/quelt/passwd_db_key"), "postfix:0 0440");
    const std::string firstKey = readFile("/var/spool/postfix/quelt/passwd_db_key");
    ASSERT_EQ(mailAuthSet("info", "example.com", std::string("pw"), 0), 0);

    // Again: an empty database and another key.
    ASSERT_EQ(mailAuthDBInitStyle(1), 0);
    EXPECT_EQ(rows(mailAuthDBPath(), "SELECT count(*) FROM users"), std::vector<std::string>{"0"});
    EXPECT_NE(readFile("/var/spool/postfix/quelt/passwd_db_key"), firstKey);
}

}  // namespace
