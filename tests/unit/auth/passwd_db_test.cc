// The password database on a real SQLite file: what the commands' rows cannot reach (unknown
// domains, a missing key), and a writer that meets another process's lock.
#include "auth/passwd_db.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include <string>
#include <vector>

#include "support/capture.h"
#include "passwd_fixture.h"

namespace {

using PasswdDbTest = PasswdDbFixture;

// Removals and mailname renames of known domains are the commands' rows.
TEST_F(PasswdDbTest, UnknownDomains)
{
    EXPECT_EQ(stderrOf([] { EXPECT_EQ(mailAuthRename("c", "d", "unknown.test"), -1); }),
              "No such domain 'unknown.test' in the mail authentication DB\n");
    EXPECT_EQ(mailAuthRemove("c", "unknown.test"), 0);
    EXPECT_EQ(rows(dbPath_, "SELECT count(*) FROM domains WHERE name = 'unknown.test'"),
              std::vector<std::string>{"0"});
}

TEST_F(PasswdDbTest, MissingKeyFailsTheRegistration)
{
    ::unlink(keyPath_.c_str());
    const std::string err = stderrOf([] { EXPECT_EQ(mailAuthSet("info", "example.com", std::string("pw"), 0), -1); });
    EXPECT_NE(err.find("Failed to initialize password cipher context (for mail address 'info@example.com')\n"),
              std::string::npos)
        << err;
    EXPECT_TRUE(users().empty());
}

TEST_F(PasswdDbTest, WriterWaitsForAnotherProcessLock)
{
    // The sqlite3 shell holds the write lock well beyond the busy timeout, says so, then commits.
    std::FILE* holder = ::popen(("sqlite3 " + dbPath_ + " \"BEGIN EXCLUSIVE; INSERT INTO domains (name) VALUES "
                                 "('first.test');\" '.shell echo locked; sleep 0.4' 'COMMIT;'").c_str(), "r");
    ASSERT_NE(holder, nullptr);
    char line[16] = {};
    ASSERT_NE(std::fgets(line, sizeof line, holder), nullptr);
    ASSERT_STREQ(line, "locked\n");
    EXPECT_EQ(mailAuthSet("info", "second.test", std::string("pw"), kMailAuthHashed), 0);
    EXPECT_EQ(::pclose(holder), 0);
    // The registration's domain row came after the other process's committed one.
    EXPECT_EQ(rows(dbPath_, "SELECT name FROM domains ORDER BY id"),
              (std::vector<std::string>{"first.test", "second.test"}));
}

}  // namespace
