// Creation of the password database and key at the system paths (run inside the sandbox), and
// the mail server style read from the feature report.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>

#include <boost/filesystem.hpp>

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

// The feature report comes from <PRODUCT_ROOT_D>/admin/sbin/mailrig (default /usr/local/zvt).
void writeFeatureReport(const std::string& lines)
{
    boost::filesystem::create_directories("/usr/local/zvt/admin/sbin");
    writeFile("/usr/local/zvt/admin/sbin/mailrig", "#!/bin/sh\ncat <<'END'\n" + lines + "END\n");
    ::chmod("/usr/local/zvt/admin/sbin/mailrig", 0755);
}

TEST(PasswdDbDetect, StyleFromTheFeatureReport)
{
    const std::pair<std::string, int> cases[] = {
        {"$features['SMTP_Server'] = \"Postfix\";\n", 1},
        {"$features['other'] = \"qmail\";\n$features['SMTP_Server'] = 'QMAIL';\n", 0},
        {"$features['SMTP_Server'] = \"exim\";\n", -1},
    };
    for (const auto& [report, style] : cases) {
        writeFeatureReport(report);
        EXPECT_EQ(mailAuthDBDetectStyle(), style) << report;
    }
}

}  // namespace
