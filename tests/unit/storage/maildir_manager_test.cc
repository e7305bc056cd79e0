// Mailbox trees in the sandbox: repair, backups, domain renames, names that leave their parent.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <set>

#include "runtime/errors.h"
#include "storage/fs_error.h"
#include "storage/fs_scopes.h"
#include "storage/maildir_manager.h"
#include "storage_fixture.h"
#include "support/child.h"

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

TEST_F(MaildirManagerTest, HomeBelongsToPopuserWhileMissingParentsStayWithTheProcess)
{
    manager.createMailnameHome("example.com", "info");
    expectCompleteHome(kHome);
    for (const std::string& parent : {kRoot, kRoot + "/example.com"}) {
        const struct stat st = lstatOf(parent);
        EXPECT_EQ(st.st_uid, ::getuid()) << parent;
        EXPECT_EQ(st.st_mode & 07777, 0700u) << parent;
    }
    EXPECT_EQ(currentUmask(), 022u);

    // Created again, a damaged home is repaired and keeps its mail.
    fs::remove(kHome + "/Maildir/.Spam/cur");
    fs::remove(kHome + "/@attachments");
    ASSERT_EQ(::chmod((kHome + "/Maildir/new").c_str(), 0755), 0);
    ASSERT_EQ(::chown((kHome + "/Maildir").c_str(), 0, 0), 0);
    writeFile(kHome + "/Maildir/cur/1.msg", "kept\n");
    manager.createMailnameHome("example.com", "info");
    EXPECT_EQ(readFile(kHome + "/Maildir/cur/1.msg"), "kept\n");
    fs::remove(kHome + "/Maildir/cur/1.msg");
    expectCompleteHome(kHome);

    // A failure still restores the umask.
    fs::remove(kHome + "/Maildir/.Spam/new");
    writeFile(kHome + "/Maildir/.Spam/new", "not a folder");
    ::umask(027);
    EXPECT_THROW(manager.createMailnameHome("example.com", "info"), fs::filesystem_error);
    EXPECT_EQ(currentUmask(), 027u);
}

TEST_F(MaildirManagerTest, BackupNamesCarryTheInodeAndNeverOverwrite)
{
    manager.createMailnameHome("example.com", "info");
    const std::string saved = kHome + ".QueltSaved." + std::to_string(lstatOf(kHome).st_ino);
    manager.backupMailnameHome("example.com", "info");
    EXPECT_FALSE(fs::exists(kHome));
    EXPECT_TRUE(fs::is_directory(saved + "/Maildir/cur")) << saved;

    // A backup name that is taken, even by an empty folder, is not replaced.
    manager.createMailnameHome("example.com", "info");
    fs::create_directory(kHome + ".QueltSaved." + std::to_string(lstatOf(kHome).st_ino));
    EXPECT_THROW(manager.backupMailnameHome("example.com", "info"), fs::filesystem_error);
    EXPECT_TRUE(fs::is_directory(kHome + "/Maildir"));
    EXPECT_TRUE(fs::is_directory(saved));

    const ino_t inode = lstatOf(kRoot + "/example.com").st_ino;
    manager.backupDomainRoot("example.com");
    EXPECT_TRUE(fs::is_directory(kRoot + "/example.com.QueltSaved." + std::to_string(inode) + "/info/Maildir"));
    EXPECT_FALSE(fs::exists(kRoot + "/example.com"));
}

TEST_F(MaildirManagerTest, BackupOfAMissingTreeSucceedsWithAnEmptyName)
{
    fs::create_directories(kRoot);
    writeFile(kRoot + "/file", "x");
    // A component that is a file counts as missing too.
    for (const std::string& path : {kRoot + "/nothing.example", kRoot + "/file/below"}) {
        fs::path saved = "untouched";
        EXPECT_TRUE(quelt::mail::backupRename(path, saved)) << path;
        EXPECT_TRUE(saved.empty()) << path;
    }
    EXPECT_NO_THROW(manager.backupDomainRoot("nothing.example"));
    EXPECT_NO_THROW(manager.backupMailnameHome("nothing.example", "x"));
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

// A mailname's home rename is a row of the commands; a domain's root has no command yet.
TEST_F(MaildirManagerTest, DomainRenamesMoveTreesButNeverOntoExistingOnes)
{
    manager.createMailnameHome("example.com", "office");
    fs::create_directories(kRoot + "/example.net/x");
    EXPECT_THROW(manager.renameDomainRoot("example.com", "example.net"), fs::filesystem_error);
    manager.renameDomainRoot("example.com", "example.org");
    EXPECT_TRUE(fs::is_directory(kRoot + "/example.org/office/Maildir"));
    EXPECT_FALSE(fs::exists(kRoot + "/example.com"));
}

TEST(MaildirOwnerTest, MissingPopuserFailsBeforeTouchingTheDisk)
{
    // A private mount namespace hides popuser behind a bind-mounted passwd file.
    const ChildResult child = runInChild([] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_PRIVATE | MS_REC, nullptr) != 0)
            return 10;
        writeFile("/tmp/passwd.nopop", "root:x:0:0:root:/root:/bin/sh\n");
        if (::mount("/tmp/passwd.nopop", "/etc/passwd", nullptr, MS_BIND, nullptr) != 0)
            return 11;
        std::fputs(thrownWhat<quelt::SystemError>([] { MaildirManager::getInstance(); }).c_str(), stderr);
        return fs::exists(kRoot) ? 12 : 0;
    });
    EXPECT_EQ(child.status, 0) << child.err;
    EXPECT_EQ(child.err, "user popuser not found: No such file or directory");
}

TEST(CwdScopeTest, ReturnsToTheRememberedDirectory)
{
    ASSERT_EQ(::chdir("/tmp"), 0);
    {
        quelt::mail::CwdScope cwd;
        ASSERT_TRUE(cwd.remembered());
        ASSERT_TRUE(cwd.enter("/etc"));
        EXPECT_FALSE(cwd.enter("/no/such/dir"));
        EXPECT_EQ(errno, ENOENT);
    }
    EXPECT_EQ(fs::current_path().string(), "/tmp");
}

}  // namespace
