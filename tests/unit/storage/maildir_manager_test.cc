// Mailbox trees in the sandbox: paths, owners and modes, repair, backups, renames, removal.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <set>

#include "runtime/errors.h"
#include "storage/fs_error.h"
#include "storage/fs_scopes.h"
#include "storage/maildir_manager.h"
#include "storage/maildirpp_manager.h"
#include "storage_fixture.h"
#include "support/child.h"

namespace fs = boost::filesystem;
using quelt::mail::MaildirManager;
using storage_test::lstatOf;

namespace {

const std::string kRoot = "/var/qmail/mailnames";

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

    static void expectOwnedDir(const std::string& path, mode_t mode)
    {
        const auto owner = storage_test::popuser();
        const struct stat st = lstatOf(path);
        EXPECT_TRUE(S_ISDIR(st.st_mode)) << path;
        EXPECT_EQ(st.st_mode & 07777, mode) << path;
        EXPECT_EQ(st.st_uid, owner.uid) << path;
        EXPECT_EQ(st.st_gid, owner.gid) << path;
    }

    static void expectCompleteHome(const std::string& home)
    {
        const std::set<std::string> want = {
            "Maildir",       "Maildir/tmp",       "Maildir/new",       "Maildir/cur",
            "Maildir/.Spam", "Maildir/.Spam/tmp", "Maildir/.Spam/new", "Maildir/.Spam/cur",
            "@attachments",
        };
        EXPECT_EQ(treeOf(home), want) << home;
        expectOwnedDir(home, 0700);
        for (const auto& entry : want)
            expectOwnedDir(home + "/" + entry, 0700);
    }
};

TEST_F(MaildirManagerTest, PathsStartAtTheDefaultMailRoot)
{
    EXPECT_EQ(MaildirManager::getMailRoot().string(), kRoot);
    EXPECT_EQ(MaildirManager::getDomainRoot("example.com").string(), kRoot + "/example.com");
    EXPECT_EQ(MaildirManager::getMailnameHome("example.com", "info").string(),
              kRoot + "/example.com/info");
    EXPECT_EQ(MaildirManager::getDomainRelativeRoot("example.com").string(), "example.com");
    EXPECT_EQ(MaildirManager::getMailnameRelativeHome("example.com", "info").string(),
              "example.com/info");
}

TEST_F(MaildirManagerTest, MailRootComesFromTheConfigurationFile)
{
    // In a child, so the configuration loaded there does not leak into the other tests.
    const ChildResult child = runInChild([] {
        storage_test::writeFile("/etc/zvt/zvt.conf", "QUELT_MAILNAMES_D /srv/mail # moved\n");
        const std::string home = MaildirManager::getMailnameHome("example.com", "info").string();
        ::unlink("/etc/zvt/zvt.conf");
        return home == "/srv/mail/example.com/info" ? 0 : 3;
    });
    EXPECT_EQ(child.status, 0) << child.err;
}

TEST_F(MaildirManagerTest, HomeBelongsToPopuserWhileMissingParentsStayWithTheProcess)
{
    MaildirManager::getInstance().createMailnameHome("example.com", "info");
    expectCompleteHome(kRoot + "/example.com/info");
    for (const std::string& parent : {kRoot, kRoot + "/example.com"}) {
        const struct stat st = lstatOf(parent);
        EXPECT_EQ(st.st_uid, ::getuid()) << parent;
        EXPECT_EQ(st.st_mode & 07777, 0700u) << parent;
    }
    EXPECT_EQ(storage_test::currentUmask(), 022u);
}

TEST_F(MaildirManagerTest, CreatingAHomeAgainRepairsIt)
{
    auto& manager = MaildirManager::getInstance();
    manager.createMailnameHome("example.com", "info");
    const std::string home = kRoot + "/example.com/info";
    fs::remove(home + "/Maildir/.Spam/cur");
    fs::remove(home + "/@attachments");
    ASSERT_EQ(::chmod((home + "/Maildir/new").c_str(), 0755), 0);
    ASSERT_EQ(::chown((home + "/Maildir").c_str(), 0, 0), 0);
    storage_test::writeFile(home + "/Maildir/cur/1.msg", "kept\n");

    manager.createMailnameHome("example.com", "info");

    EXPECT_EQ(storage_test::readFile(home + "/Maildir/cur/1.msg"), "kept\n");
    fs::remove(home + "/Maildir/cur/1.msg");
    expectCompleteHome(home);
}

TEST_F(MaildirManagerTest, DomainRootIs0750AndOwnedByPopuser)
{
    ::umask(0);
    MaildirManager::getInstance().createDomainRoot("example.com");
    expectOwnedDir(kRoot + "/example.com", 0750);
    EXPECT_EQ(lstatOf(kRoot).st_mode & 07777, 0700u) << "made under the 077 mask";
    EXPECT_EQ(storage_test::currentUmask(), 0u);
}

TEST_F(MaildirManagerTest, UmaskIsRestoredWhenCreationFails)
{
    auto& manager = MaildirManager::getInstance();
    manager.createMailnameHome("example.com", "info");
    const std::string blocker = kRoot + "/example.com/info/Maildir/.Spam/new";
    fs::remove(blocker);
    storage_test::writeFile(blocker, "not a folder");
    ::umask(027);
    EXPECT_THROW(manager.createMailnameHome("example.com", "info"), fs::filesystem_error);
    EXPECT_EQ(storage_test::currentUmask(), 027u);
}

TEST_F(MaildirManagerTest, BackupNamesCarryTheInodeAndNeverOverwrite)
{
    auto& manager = MaildirManager::getInstance();
    const std::string home = kRoot + "/example.com/info";
    manager.createMailnameHome("example.com", "info");
    const ino_t first = lstatOf(home).st_ino;
    manager.backupMailnameHome("example.com", "info");
    EXPECT_FALSE(fs::exists(home));
    const std::string firstSaved = home + ".QueltSaved." + std::to_string(first);
    EXPECT_TRUE(fs::is_directory(firstSaved + "/Maildir/cur")) << firstSaved;

    // Recreated, it has a new inode and so a distinct backup name.
    manager.createMailnameHome("example.com", "info");
    const ino_t second = lstatOf(home).st_ino;
    ASSERT_NE(first, second);
    manager.backupMailnameHome("example.com", "info");
    EXPECT_TRUE(fs::is_directory(home + ".QueltSaved." + std::to_string(second)));
    EXPECT_TRUE(fs::is_directory(firstSaved));

    // A backup name that is taken, even by an empty folder, is not replaced.
    manager.createMailnameHome("example.com", "info");
    const std::string taken = home + ".QueltSaved." + std::to_string(lstatOf(home).st_ino);
    fs::create_directory(taken);
    EXPECT_THROW(manager.backupMailnameHome("example.com", "info"), fs::filesystem_error);
    EXPECT_TRUE(fs::is_directory(home + "/Maildir"));
}

TEST_F(MaildirManagerTest, BackupOfAMissingTreeSucceedsWithAnEmptyName)
{
    fs::path saved = "untouched";
    EXPECT_TRUE(quelt::mail::backupRename(kRoot + "/nothing.example", saved));
    EXPECT_TRUE(saved.empty());
    // A component that is a file counts as missing too.
    fs::create_directories(kRoot);
    storage_test::writeFile(kRoot + "/file", "x");
    saved = "untouched";
    EXPECT_TRUE(quelt::mail::backupRename(kRoot + "/file/below", saved));
    EXPECT_TRUE(saved.empty());
    EXPECT_NO_THROW(MaildirManager::getInstance().backupDomainRoot("nothing.example"));
    EXPECT_NO_THROW(MaildirManager::getInstance().backupMailnameHome("nothing.example", "x"));
}

TEST_F(MaildirManagerTest, BackupDomainRootUsesTheRootsInode)
{
    auto& manager = MaildirManager::getInstance();
    manager.createMailnameHome("example.com", "info");
    const ino_t inode = lstatOf(kRoot + "/example.com").st_ino;
    manager.backupDomainRoot("example.com");
    EXPECT_TRUE(fs::is_directory(kRoot + "/example.com.QueltSaved." + std::to_string(inode) +
                                 "/info/Maildir"));
    EXPECT_FALSE(fs::exists(kRoot + "/example.com"));
}

TEST_F(MaildirManagerTest, RemovalDeletesTreesAndAcceptsMissingOnes)
{
    auto& manager = MaildirManager::getInstance();
    EXPECT_NO_THROW(manager.removeDomainRoot("missing.example"));
    EXPECT_NO_THROW(manager.removeMailnameHome("missing.example", "info"));

    manager.createMailnameHome("example.com", "info");
    manager.createMailnameHome("example.com", "sales");
    storage_test::writeFile(kRoot + "/example.com/info/Maildir/new/1.msg", "mail\n");
    manager.removeMailnameHome("example.com", "info");
    EXPECT_EQ(treeOf(kRoot + "/example.com").count("info"), 0u);
    EXPECT_TRUE(fs::is_directory(kRoot + "/example.com/sales"));

    manager.createMailnameHome("other.example", "info");
    manager.removeDomainRoot("example.com");
    for (const auto& name : treeOf(kRoot))
        EXPECT_EQ(name.rfind("example.com", 0), std::string::npos) << "left behind: " << name;
    EXPECT_TRUE(fs::is_directory(kRoot + "/other.example/info/Maildir"));
}

TEST_F(MaildirManagerTest, RenamesMoveTreesButNeverOntoExistingOnes)
{
    auto& manager = MaildirManager::getInstance();
    manager.createMailnameHome("example.com", "info");
    manager.renameMailnameHome("example.com", "info", "office");
    EXPECT_FALSE(fs::exists(kRoot + "/example.com/info"));
    EXPECT_TRUE(fs::is_directory(kRoot + "/example.com/office/Maildir/cur"));

    fs::create_directory(kRoot + "/example.com/taken");
    EXPECT_THROW(manager.renameMailnameHome("example.com", "office", "taken"), fs::filesystem_error);
    EXPECT_TRUE(fs::is_directory(kRoot + "/example.com/office/Maildir"));

    manager.renameDomainRoot("example.com", "example.org");
    EXPECT_TRUE(fs::is_directory(kRoot + "/example.org/office/Maildir"));
    EXPECT_FALSE(fs::exists(kRoot + "/example.com"));
    EXPECT_THROW(manager.renameDomainRoot("example.com", "example.net"), fs::filesystem_error);
}

TEST(FSErrorTest, MessageNamesTheOperationTheErrorAndThePaths)
{
    const quelt::mail::FSError one("chown", "/var/qmail/mailnames/a", EPERM);
    EXPECT_STREQ(one.what(), "chown: Operation not permitted: \"/var/qmail/mailnames/a\"");
    const quelt::mail::FSError two("rename", "/x/a", "/x/b", ENOENT);
    EXPECT_STREQ(two.what(), "rename: No such file or directory: \"/x/a\", \"/x/b\"");
    const quelt::mail::FSError none("unable to store domain quota", "example.com", 0);
    EXPECT_STREQ(none.what(), "unable to store domain quota: Success: \"example.com\"");
    EXPECT_EQ(none.path1().string(), "example.com");
}

TEST(MaildirOwnerTest, MissingPopuserFailsBeforeTouchingTheDisk)
{
    // A private mount namespace hides popuser behind a bind-mounted passwd file.
    const ChildResult child = runInChild([] {
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_PRIVATE | MS_REC, nullptr) != 0)
            return 10;
        storage_test::writeFile("/tmp/passwd.nopop", "root:x:0:0:root:/root:/bin/sh\n");
        if (::mount("/tmp/passwd.nopop", "/etc/passwd", nullptr, MS_BIND, nullptr) != 0)
            return 11;
        try {
            MaildirManager::getInstance();
        } catch (const quelt::SystemError& e) {
            std::fputs(e.what(), stderr);
            return fs::exists(kRoot) ? 12 : 0;
        }
        return 13;
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
