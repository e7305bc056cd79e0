// Maildir++ files in the sandbox: exact maildirsize bytes, the usage scan, trust rules of the
// parser, backdating and safe creation of the temporary file.
#include <sys/time.h>
#include <unistd.h>

#include <ctime>

#include "storage/maildir_manager.h"
#include "storage/maildirpp.h"
#include "storage_fixture.h"

namespace fs = boost::filesystem;
using namespace storage_test;

namespace {

const std::string kHome = kRoot + "/example.com/info";
const std::string kMaildir = kHome + "/Maildir";

class MaildirppTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        fs::remove_all(kRoot);
        ::umask(022);
        quelt::mail::MaildirManager::getInstance().createMailnameHome("example.com", "info");
    }
    void TearDown() override { fs::remove_all(kRoot); }

    static void message(const std::string& relative, size_t bytes)
    {
        fs::create_directories(fs::path(kMaildir + "/" + relative).parent_path());
        writeFile(kMaildir + "/" + relative, std::string(bytes, 'x'));
    }
    static std::string maildirsize() { return readFile(kMaildir + "/maildirsize"); }
};

TEST_F(MaildirppTest, ScanCountsNamedAndRealSizesSkippingTrashDotDotFoldersAndNonFolders)
{
    message("new/1700000000.M1P1.host,S=2048", 10);
    message("cur/1700000001.M2P1.host,S=300:2,S", 7);
    message("cur/1700000002.M3P1.host:2,", 37);
    message("tmp/1700000003.M4P1.host,S=999", 1);  // not delivered yet
    for (const char* folder : {".Sub", ".Sub.Deeper", ".Trash", "..hidden"})
        for (const char* sub : {"/new", "/cur", "/tmp"})
            fs::create_directories(kMaildir + "/" + folder + sub);
    message(".Sub/new/a,S=5", 1);
    message(".Sub.Deeper/cur/b,S=7:2,", 1);
    message(".Spam/cur/c,S=11", 1);
    message(".Trash/cur/d,S=1000", 1);
    message("..hidden/cur/e,S=1000", 1);
    writeFile(kMaildir + "/.notafolder", "x");
    message("plain/f,S=1000", 1);

    const std::string err = stderrOf([] { ASSERT_EQ(store_maildirpp_quota_raw(kMaildir, 100000), 1); });
    EXPECT_EQ(maildirsize(), "100000S,0C\n" + usageLine(2048 + 300 + 37 + 5 + 7 + 11, 6));
    EXPECT_NE(err.find("Bad/unrecognized entry .notafolder within Maildir folder " + kMaildir), std::string::npos)
        << err;
}

TEST(MaildirNameSizeTest, TakesTheFirstUsableSizeTag)
{
    const std::pair<const char*, long long> cases[] = {  // -1: none
        {"1.M1.host,S=2048", 2048}, {"1.M1.host,S=2048:2,S", 2048}, {"1.M1.host,S=0", 0},
        {"1.M1.host,S=12a", -1}, {"1.M1.host,S=", -1}, {"1.M1.host,S=:2,", -1}, {"1.M1.host,S=x,S=5", 5},
        {"1.M1.host,S=99999999999999999999999,S=7", 7}, {"1.M1.host,W=10,S=20:2,", 20}, {"1.M1.host,s=20", -1},
        {"plain", -1},
    };
    for (const auto& [name, want] : cases) {
        const auto size = maildir_name_size(name);
        EXPECT_EQ(size ? static_cast<long long>(*size) : -1, want) << name;
    }
}

TEST(ParseMaildirsizeTest, TrustsOnlyWellFormedFiles)
{
    const long long kNoBytes = kMaildirppNoByteLimit;
    const unsigned long long kNoCount = kMaildirppNoCountLimit;
    const struct {
        std::string text;
        bool trusted;
        long long byteLimit;
        unsigned long long countLimit;
        long long bytes;
        unsigned long long count;
    } cases[] = {
        {"1000S,5C\n" + kEmptyUsage, true, 1000, 5, 0, 0}, {"1000S\n  10 1\n", true, 1000, 0, 10, 1},
        {"1000\n", true, 1000, 0, 0, 0}, {"1000,3C\n", true, 1000, 3, 0, 0}, {"\n   50 2\n", true, 0, 0, 50, 2},
        {"", true, 0, 0, 0, 0}, {"100S,0C\n  50 2\n  -20 -1\n   7 1\n", true, 100, 0, 37, 2},
        {"100S,0C\n  50 2", false, 100, 0, 50, 0}, {"100S,0C", false, 100, 0, 0, 0},
        {"100S,0C\nabc\n", false, 100, 0, 0, 0}, {"100S,0C\n50\n", false, 100, 0, 0, 0},
        {"100S,0C\n50 2 3\n", false, 100, 0, 0, 0}, {"100S,0C\n\n", false, 100, 0, 0, 0},
        {"-5S,0C\n  10 1\n", false, kNoBytes, kNoCount, 0, 0}, {"100X\n", false, kNoBytes, kNoCount, 0, 0},
        {"100S,C\n", false, kNoBytes, kNoCount, 0, 0}, {"100S,5\n", false, kNoBytes, kNoCount, 0, 0},
        {"99999999999999999999S\n", false, kNoBytes, kNoCount, 0, 0},
    };
    for (const auto& c : cases) {
        MaildirppQuota quota;
        EXPECT_EQ(parse_maildirsize(c.text, quota), c.trusted) << c.text;
        EXPECT_EQ(quota.byteLimit, c.byteLimit) << c.text;
        EXPECT_EQ(quota.countLimit, c.countLimit) << c.text;
        if (c.trusted) {
            EXPECT_EQ(std::make_pair(quota.bytes, quota.count), std::make_pair(c.bytes, c.count)) << c.text;
        }
    }
}

TEST_F(MaildirppTest, UntrustedFilesFallBackToAScan)
{
    message("new/a,S=120", 1);
    message("cur/b", 30);
    std::string longFile = "1000S,0C\n";
    while (longFile.size() <= kMaildirsizeMaxTrusted)
        longFile += "           1           1\n";
    const std::pair<std::string, bool> cases[] = {
        {"1000S,0C\n  500 4\n", true}, {"1000S,0C\n  500 4\nbad\n", false}, {longFile, false}};
    long long bytes = -1;
    unsigned long long count = 0;
    for (const auto& [text, trusted] : cases) {
        writeFile(kMaildir + "/maildirsize", text);
        ASSERT_EQ(get_maildirpp_usage(kMaildir, bytes, count), 1) << text;
        EXPECT_EQ(bytes, trusted ? 500 : 150) << text.substr(0, 40);
        EXPECT_EQ(count, trusted ? 4u : 2u) << text.substr(0, 40);
    }
}

TEST_F(MaildirppTest, FileIsBackdatedWhenTheMaildirsOwnFoldersCannotBeExamined)
{
    ASSERT_EQ(store_maildirpp_quota_raw(kMaildir, 10), 1);
    EXPECT_GE(lstatOf(kMaildir + "/maildirsize").st_mtime, std::time(nullptr) - 5) << "a quiet Maildir keeps a fresh file";

    fs::remove(kMaildir + "/cur");
    // The scan reference is the newest scanned folder.
    for (const char* folder : {"/new", "/.Spam/new", "/.Spam/cur"}) {
        const long stamp = folder[1] == 'n' ? 1600000000 : 1500000000;
        struct timeval old[2] = {{stamp, 0}, {stamp, 0}};
        ASSERT_EQ(::utimes((kMaildir + folder).c_str(), old), 0) << folder;
    }
    const std::string err = stderrOf([] { ASSERT_EQ(store_maildirpp_quota_raw(kMaildir, 10), 1); });
    EXPECT_EQ(lstatOf(kMaildir + "/maildirsize").st_mtime, 1600000000 - 960);
    EXPECT_EQ(err.rfind("Maildir subfolder 'cur' stat failed", 0), 0u) << err;
}

TEST_F(MaildirppTest, PlantedNamesAreRefusedAndCreationGivesUp)
{
    // Links at every name the writer could pick in the next seconds point at a victim file.
    const std::string victim = kHome + "/victim";
    writeFile(victim, "untouched");
    char host[256];
    ASSERT_EQ(::gethostname(host, sizeof host), 0);
    const std::time_t now = std::time(nullptr);
    for (std::time_t t = now; t < now + 30; ++t) {
        const std::string name = kMaildir + "/tmp/" + std::to_string(t) + "." + std::to_string(::getpid()) + "." +
                                 host + "-maildirsize";
        ASSERT_EQ(::symlink(victim.c_str(), name.c_str()), 0);
    }
    EXPECT_EQ(stderrOf([] { EXPECT_EQ(store_maildirpp_quota_raw(kMaildir, 10), 0); }),
              "Maximal allowed number of attempts to create a maildirsize file exceeded\n"
              "System error 11: Resource temporarily unavailable\n");
    EXPECT_EQ(readFile(victim), "untouched");
    EXPECT_FALSE(fs::exists(kMaildir + "/maildirsize"));
}

}  // namespace
