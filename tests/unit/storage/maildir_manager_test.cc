// Mailbox trees in the sandbox: repair, and names that leave their parent.
#include <unistd.h>

#include <set>

#include "storage/fs_error.h"
#include "storage/maildir_manager.h"
#include "storage_fixture.h"

namespace fs = boost::filesystem;
using quelt::mail::MaildirManager;
using namespace storage_test;

namespace {

const std::string kHome = kRoot + "/example.com/info";

class MaildirManagerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        fs::remove_all(kRoot);
        ::umask(022);
    }
    void TearDown() override { fs::remove_all(kRoot); }

    // Every path below `top`, relative to it.
    static std::set<std::string> treeOf(const fs::path& top)
    {
        std::set<std::string> names;
        for (fs::recursive_directory_iterator it(top), end; it != end; ++it)
            names.insert(fs::relative(it->path(), top).string());
        return names;
    }

    static void expectCompleteHome(const std::string& home)
    {
        const std::set<std::string> want = {
            "Maildir",       "Maildir/tmp",       "Maildir/new",       "Maildir/cur",
            "Maildir/.Spam", "Maildir/.Spam/tmp", "Maildir/.Spam/new", "Maildir/.Spam/cur",
            "@attachments",
        };
        EXPECT_EQ(treeOf(home), want) << home;
        EXPECT_EQ(popuserOwns(home, 0700), "ok");
        for (const auto& entry : want)
            EXPECT_EQ(popuserOwns(home + "/" + entry, 0700), "ok");
    }

    MaildirManager& manager = MaildirManager::getInstance();
};

// A new home's entries are rows of the commands; a damaged one is repaired and keeps its mail.
TEST_F(MaildirManagerTest, ADamagedHomeIsRepairedAndKeepsItsMail)
{
    manager.createMailnameHome("example.com", "info");
    fs::remove(kHome + "/Maildir/.Spam/cur");
    fs::remove(kHome + "/@attachments");
    ASSERT_EQ(::chmod((kHome + "/Maildir/new").c_str(), 0755), 0);
    ASSERT_EQ(::chown((kHome + "/Maildir").c_str(), 0, 0), 0);
    writeFile(kHome + "/Maildir/cur/1.msg", "kept\n");
    manager.createMailnameHome("example.com", "info");
    EXPECT_EQ(readFile(kHome + "/Maildir/cur/1.msg"), "kept\n");
    fs::remove(kHome + "/Maildir/cur/1.msg");
    expectCompleteHome(kHome);
}

// A name that is not one entry of its parent never reaches the disk, whatever the caller
// checked: the root and its neighbours stay.
TEST_F(MaildirManagerTest, NamesThatLeaveTheirParentNeverReachTheDisk)
{
    manager.createMailnameHome("other.example", "info");
    for (const std::string bad : {"", ".", "..", "a/b", "../x", "/"}) {
        EXPECT_THROW(manager.removeDomainRoot(bad), quelt::mail::FSError) << bad;
        EXPECT_THROW(manager.removeMailnameHome("other.example", bad), quelt::mail::FSError) << bad;
        EXPECT_THROW(manager.createDomainRoot(bad), quelt::mail::FSError) << bad;
    }
    EXPECT_TRUE(fs::is_directory(kRoot + "/other.example/info/Maildir"));
}

}  // namespace
