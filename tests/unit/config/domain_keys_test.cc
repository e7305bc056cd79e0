// DomainKeys key files: names that would leave /etc/domainkeys are refused by the files' own
// check, whatever the caller checked, and the other names of the list are still done.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "config/files/domain_keys.h"
#include "support/capture.h"
#include "support/io.h"

namespace fs = std::filesystem;

namespace {

TEST(DomainKeys, NamesThatLeaveTheFolderAreRefusedAndTheOthersDoneInLowerCase)
{
    const std::string key = "/tmp/dk-test.key";
    writeFile(key, "key one\n");
    fs::remove_all("/etc/domainkeys");
    fs::create_directory("/etc/domainkeys");
    fs::create_directories("/etc/keep");
    writeFile("/etc/keep/default", "precious");
    for (const char* hostile : {"../keep", "..", "a/b.example", "a b.example", "a.example\n"}) {
        CaptureFd err(2);
        EXPECT_EQ(set_domain_key(std::string(hostile) + ",OK.example", key), -1) << hostile;
        EXPECT_NE(err.text().find("Invalid domain name"), std::string::npos) << hostile;
        EXPECT_EQ(remove_domain_key(hostile), -1) << hostile;
        EXPECT_EQ(clone_domain_key("ok.example", hostile), -1) << hostile;
    }
    EXPECT_EQ(readFile("/etc/keep/default"), "precious");
    EXPECT_EQ(readFile("/etc/domainkeys/ok.example/default"), "key one\n");
    EXPECT_EQ(std::distance(fs::directory_iterator("/etc/domainkeys"), {}), 1);
    fs::remove(key);
}

}  // namespace
