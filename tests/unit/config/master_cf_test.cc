// master.cf files read and written back: byte-exact round trips of Debian's file and of
// hand-edited variants, the entries the grammar finds, refusals, and the moves between
// master.cf and master.cf.disabled. Runs in the sandbox (stores take /var/lock/files locks).
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "config/master/master_cf_file.h"
#include "config/master/module_manager.h"
#include "runtime/errors.h"
#include "services/process/mk_lock.h"
#include "storage/fs_error.h"
#include "support/io.h"

namespace pf = quelt::mail::postfix;

namespace {

constexpr const char* kDebianMasterCf = "/usr/share/postfix/master.cf.dist";

std::string written(const pf::MasterCfContent& content)
{
    std::ostringstream out;
    content.write(out);
    return out.str();
}

std::unique_ptr<pf::MasterCfContent> parsed(const std::string& text)
{
    return pf::parseMasterCf(text.data(), text.size());
}

// The names in `dir`, sorted, each followed by a blank.
std::string dirEntries(const std::string& dir)
{
    std::set<std::string> names;
    if (DIR* d = ::opendir(dir.c_str())) {
        while (const dirent* e = ::readdir(d))
            if (e->d_name[0] != '.')
                names.insert(e->d_name);
        ::closedir(d);
    }
    std::string all;
    for (const auto& name : names)
        all += name + " ";
    return all;
}

class MasterCfFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/mastercf.XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl), nullptr);
        dir = tmpl;
        master = dir + "/master.cf";
        disabled = dir + "/master.cf.disabled";
    }
    std::string dir, master, disabled;
};

const char* const kVariants[] = {
    // comment and empty lines between an entry and its continuation lines
    "relay unix - - y - - smtp\n# why\n\n  -o syslog_name=relay\n\t# more\n\t-o a=b\nnext unix - - - - - x\n",
    // tabs, carriage returns and blanks at line ends, blank-only lines
    "smtp\tinet\tn\t-\ty\t-\t-\tsmtpd   \n   \n\t\n#c \r\npickup unix n - y 60 1 pickup\r\n",
    // the last line without a line end: an entry, a comment, blanks
    "smtp inet n - y - - smtpd",
    "smtp inet n - y - - smtpd\n#last",
    "smtp inet n - y - - smtpd\n  ",
    // empty files and only line ends
    "", "\n", "\n\n\n",
    // a continuation line that only carries columns, entry with no command
    "smtps inet n - n\n    - - smtpd\n  -o smtpd_tls_wrappermode=yes\nx inet - - - - -\n",
    // the same key twice: both lines stay
    "smtp inet n - y - - smtpd\nsmtp inet n - y - - postscreen\n",
};

TEST(MasterCfText, DebianFileAndVariantsWriteBackByteForByte)
{
    std::string debian = readFile(kDebianMasterCf);
    ASSERT_FALSE(debian.empty());
    auto content = parsed(debian);
    ASSERT_TRUE(content);
    EXPECT_EQ(written(*content), debian);
    for (const char* variant : kVariants) {
        auto c = parsed(variant);
        ASSERT_TRUE(c) << variant;
        EXPECT_EQ(written(*c), variant);
    }
}

TEST(MasterCfText, EntriesCarryTheirColumnsAndCommand)
{
    auto content = parsed(readFile(kDebianMasterCf));
    ASSERT_TRUE(content);
    auto [tlsmgr, tlsLine] = content->getModule("tlsmgr", pf::unix);
    EXPECT_EQ(tlsLine, "tlsmgr    unix  -       -       y       1000?   1       tlsmgr");
    EXPECT_EQ(tlsmgr.wakeup, 1000);
    EXPECT_TRUE(tlsmgr.wakeupOnDemand);
    EXPECT_EQ(tlsmgr.maxproc, 1);
    EXPECT_TRUE(boost::indeterminate(tlsmgr.priv));
    EXPECT_TRUE(bool(tlsmgr.chroot));

    auto [maildrop, dropLine] = content->getModule("maildrop", pf::unix);
    EXPECT_EQ(dropLine, "maildrop  unix  -       n       n       -       -       pipe\n"
                        "  flags=DRXhu user=vmail argv=/usr/bin/maildrop -d ${recipient}");
    EXPECT_EQ(maildrop.command, (std::vector<std::string>{"pipe", "flags=DRXhu", "user=vmail",
                                                          "argv=/usr/bin/maildrop", "-d",
                                                          "${recipient}"}));
    EXPECT_TRUE(!maildrop.unpriv);
    EXPECT_TRUE(content->hasModule("postlog", pf::unix_dgram));
    EXPECT_TRUE(content->hasModule("smtp", pf::inet));
    EXPECT_TRUE(content->hasModule("smtp", pf::unix));
    EXPECT_FALSE(content->hasModule("smtps", pf::inet));  // commented out in the stock file
    EXPECT_THROW(content->getModule("smtps", pf::inet), std::out_of_range);

    auto pass = parsed("smtpd pass - - y - - smtpd\n");
    ASSERT_TRUE(pass);
    EXPECT_TRUE(pass->hasModule("smtpd", pf::pass));
}

TEST(MasterCfText, RefusesWhatIsNoMasterCf)
{
    const std::string entry = "smtp inet n - y - - smtpd\n";
    const std::string refused[] = {
        "Smtp inet n - y - - smtpd\n",           // upper case service
        "smtp Inet n - y - - smtpd\n",           // upper case type
        "smtp tcp n - y - - smtpd\n",            // unknown type
        "smtp inet x - y - - smtpd\n",           // flag
        "smtp inet n - y 60?? - smtpd\n",        // wakeup
        "smtp inet n - y - 99999999999 smtpd\n", // maxproc beyond int
        "smtp inet n - y - - smtpd # note\n",    // '#' inside an entry
        "  -o orphan=continuation\n" + entry,    // continuation with nothing to continue
        entry + "smtps inet n - n\n",            // entry broken off after its chroot column
        entry + "smtps inet n - n -\n  \n",      // ... and continued by blanks only
        entry + std::string(1 << 20, 'a') + "\n",                    // a 1 MB line
        entry + "relay unix - - y - - smtp -o x=\xc3\x28\n",         // invalid UTF-8
        entry + std::string("relay unix - - y - - sm\0tp\n", 27),    // NUL in an entry
        entry + std::string("# a NUL \0 in a comment\n", 23),
    };
    for (const std::string& text : refused)
        EXPECT_FALSE(parsed(text)) << text.substr(0, 80);
}

TEST_F(MasterCfFiles, LoadStoresBackAndRefusalsNameTheFile)
{
    const std::string text = readFile(kDebianMasterCf) + "# edited\nlast inet n - n - - x";
    writeFile(master, text);
    std::unique_ptr<pf::MasterCfContent> content;
    pf::loadMasterCf(master, content);
    ASSERT_TRUE(content);
    pf::storeMasterCf(master, *content);
    EXPECT_EQ(readFile(master), text);
    EXPECT_EQ(dirEntries(dir), "master.cf ");

    writeFile(disabled, "bad line\n");
    auto* before = content.get();
    try {
        pf::loadMasterCf(disabled, content);
        FAIL() << "parsed";
    } catch (const pf::PostfixConfigurationError& e) {
        EXPECT_STREQ(e.what(), ("unable to parse " + disabled).c_str());
    }
    EXPECT_EQ(content.get(), before);  // the loaded content stays
    try {
        pf::loadMasterCf(dir + "/missing", content);
        FAIL() << "opened";
    } catch (const pf::PostfixConfigurationError& e) {
        EXPECT_STREQ(e.what(), ("unable to open " + dir + "/missing").c_str());
    }
    writeFile(disabled, "");
    pf::loadMasterCf(disabled, content);
    EXPECT_TRUE(content->lines().empty());
}

TEST_F(MasterCfFiles, FailedRenameLeavesNoTemporaryFile)
{
    ASSERT_EQ(::mkdir(master.c_str(), 0755), 0);  // a directory cannot be replaced by a file
    auto content = parsed("smtp inet n - y - - smtpd\n");
    try {
        pf::storeMasterCf(master, *content);
        FAIL() << "stored";
    } catch (const quelt::mail::FSError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("rename", 0), 0u) << e.what();
    }
    EXPECT_EQ(dirEntries(dir), "master.cf ");
}

TEST_F(MasterCfFiles, StoreWaitsForTheFilesLock)
{
    writeFile(master, "old\n");
    auto content = parsed("new inet n - n - - x\n");
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t holder = ::fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        // Another writer holds the lock for a while: the file must not change meanwhile.
        quelt::MKLock held(master);
        ::write(ready[1], "x", 1);
        ::usleep(300 * 1000);
        ::_exit(readFile(master) == "old\n" ? 0 : 1);
    }
    char c;
    ASSERT_EQ(::read(ready[0], &c, 1), 1);
    pf::storeMasterCf(master, *content);
    int status = 0;
    ASSERT_EQ(::waitpid(holder, &status, 0), holder);
    EXPECT_EQ(status, 0) << "master.cf was written while its lock was held";
    EXPECT_EQ(readFile(master), "new inet n - n - - x\n");
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(MasterCfFiles, DisableAndEnableMoveTheExactText)
{
    const std::string smtps = "smtps     inet  n       -       y       -       -       smtpd\n"
                              "# TLS from the start\n"
                              "  -o smtpd_tls_wrappermode=yes";
    const std::string head = "# head\nsmtp      inet  n       -       y       -       -       smtpd\n";
    const std::string tail = "\n  \npickup    unix  n       -       y       60      1       pickup\n";
    writeFile(master, head + smtps + tail);

    pf::ModuleManager mm(master, disabled);
    EXPECT_THROW(mm.hasModule("smtp", pf::inet, true), std::logic_error);
    mm.loadModules(false);
    EXPECT_FALSE(mm.hasModule("smtp", pf::inet, false));  // no master.cf.disabled yet
    EXPECT_THROW(mm.getModule("smtp", pf::inet, false), std::out_of_range);
    EXPECT_FALSE(mm.enableModule("smtps", pf::inet));
    EXPECT_FALSE(mm.storeModules(false));
    EXPECT_FALSE(exists(disabled));

    EXPECT_TRUE(mm.disableModule("smtps", pf::inet));
    EXPECT_FALSE(mm.disableModule("smtps", pf::inet));
    EXPECT_TRUE(mm.storeModules(false));
    EXPECT_EQ(readFile(master), head + tail.substr(1));
    EXPECT_EQ(readFile(disabled), smtps + "\n");

    pf::ModuleManager again(master, disabled);
    again.loadModules(false);
    EXPECT_TRUE(again.hasModule("smtps", pf::inet, false));
    EXPECT_FALSE(again.hasModule("smtps", pf::inet, true));
    EXPECT_TRUE(again.hasModule("smtps", pf::inet, boost::indeterminate));
    EXPECT_EQ(again.getModule("smtps", pf::inet, boost::indeterminate).second, smtps);
    EXPECT_TRUE(again.enableModule("smtps", pf::inet));
    EXPECT_TRUE(again.storeModules(false));
    EXPECT_EQ(readFile(master), head + tail.substr(1) + smtps + "\n");
    EXPECT_EQ(readFile(disabled), "");
    EXPECT_EQ(dirEntries(dir), "master.cf master.cf.disabled ");
}

TEST_F(MasterCfFiles, AddedEntriesAreFormattedAndReplaceTheOtherFilesEntry)
{
    writeFile(master, "smtp inet n - y - - smtpd");
    pf::ModuleManager mm(master, disabled);
    mm.loadModules(false);
    pf::ModuleInfo sub;
    sub.name = "submission";
    sub.priv = false;
    sub.command = {"smtpd", "-o smtpd_sasl_auth_enable=yes"};
    mm.addModule(sub, false);
    pf::ModuleInfo tick;
    tick.name = "tick";
    tick.type = pf::unix;
    tick.chroot = boost::indeterminate;
    tick.wakeup = 60;
    tick.wakeupOnDemand = true;
    tick.maxproc = 1;
    tick.command = {"tick"};
    mm.addModule(tick, true);
    EXPECT_TRUE(mm.storeModules(false));
    EXPECT_EQ(readFile(master), "smtp inet n - y - - smtpd\ntick unix - - - 60? 1 tick\n");
    EXPECT_EQ(readFile(disabled), "submission inet n - n - - smtpd -o smtpd_sasl_auth_enable=yes\n");

    mm.addModule(sub, true);
    mm.removeModule("smtp", pf::inet);
    mm.storeModules(false);
    EXPECT_EQ(readFile(master),
              "tick unix - - - 60? 1 tick\nsubmission inet n - n - - smtpd -o smtpd_sasl_auth_enable=yes\n");
    EXPECT_EQ(readFile(disabled), "");
    mm.loadModules(true);
    EXPECT_EQ(mm.getModule("tick", pf::unix, true).first.wakeup, 60);
}

}  // namespace
