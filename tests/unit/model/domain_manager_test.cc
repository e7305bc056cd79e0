// Domain renames against the real postmap and Maildir trees, in the sandbox (host name
// mail.sandbox.test), with a spy over postmap that counts and fails runs. No command renames
// a domain, nor creates one switched off: only these tests reach them.
#include "model/managers/domain_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/tool_spy.h"
#include "tables/database_helper.h"
#include "tables/table_names.h"

namespace pf = quelt::mail::postfix;
namespace tb = quelt::mail::postfix::tables;
namespace fs = std::filesystem;
using pf::DomainManager;

namespace {

// A table's records as "key value" lines.
using Records = std::set<std::string>;
// Every table and the mail tree, by name.
using Snapshot = std::map<std::string, Records>;

const std::string kHost = "mail.sandbox.test";
const std::string kRoot = "/var/qmail/mailnames";
const std::string kVirtual = tb::kVirtual;
const std::string kVirtualDomains = tb::kVirtualDomains;

Records stdRecords(const std::string& domain)
{
    Records out;
    for (const char* w : {"postmaster", "mailer-daemon", "root", "anonymous", "drweb", "kluser"})
        out.insert(std::string(w) + "@" + domain + " " + w + "@localhost.localdomain");
    return out;
}

Records operator+(Records a, const Records& b)
{
    a.insert(b.begin(), b.end());
    return a;
}

// The host's own entry, in virtual while no domain takes its name.
Records hostEntry()
{
    return Records{kHost + " 1"} + stdRecords(kHost);
}

// The tables and tree of domain `d`: a mailbox, a domain alias and an address at a subdomain,
// beside another domain. After a rename, `d` is the new name and `from` the old one.
Snapshot domainState(const std::string& d, const std::string& from)
{
    return {{"virtual_domains", {d + " " + d + "/", "other.test other.test/"}},
            {"virtual", stdRecords(d) + hostEntry() +
                            Records{"info@" + d + " info@" + d + ", boss@other.test", "alias.test 1",
                                    "info@alias.test info@" + d, "x@sub." + from + " x@other.test"}},
            {"vmailbox", {"info@" + d + " " + d + "/info/", "a@other.test other.test/a/"}},
            {"tree", {d, d + "/info", d + "/info/Maildir", d + "/info/Maildir/new", "other.test"}}};
}

class DomainManagerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { spy_ = new ToolSpy("/usr/sbin/postmap"); }
    static void TearDownTestSuite() { delete spy_; }

    void SetUp() override { seedDomain("old.test"); }

    static void seed(const std::string& table, const Records& records)
    {
        std::vector<std::pair<std::string, std::string>> pairs;
        for (const auto& r : records)
            pairs.emplace_back(r.substr(0, r.find(' ')), r.substr(r.find(' ') + 1));
        pf::DatabaseHelper::replaceRecords(table, pairs.begin(), pairs.end());
    }

    static void seedDomain(const std::string& d)
    {
        fs::create_directories("/var/spool/postfix/quelt");
        fs::remove_all(kRoot);
        const Snapshot state = domainState(d, d);
        for (const char* table : {"virtual_domains", "virtual", "vmailbox"})
            seed(std::string("/var/spool/postfix/quelt/") + table, state.at(table));
        for (const auto& dir : state.at("tree"))
            fs::create_directories(kRoot + "/" + dir);
        spy_->clear();
    }

    // The records as the real postmap dumps them (its first tab shown as a space).
    static Records dump(const std::string& table)
    {
        std::istringstream all(shellOutput(spy_->real() + " -s " + table + " 2>&1 | sed 's/\\t/ /'"));
        Records out;
        for (std::string line; std::getline(all, line);)
            out.insert(line);
        return out;
    }

    static Snapshot snapshot()
    {
        Records tree;
        if (fs::exists(kRoot))
            for (const auto& entry : fs::recursive_directory_iterator(kRoot))
                tree.insert(fs::relative(entry.path(), kRoot).string());
        return {{"virtual_domains", dump(kVirtualDomains)}, {"virtual", dump(kVirtual)},
                {"vmailbox", dump(tb::kVmailbox)}, {"tree", tree}};
    }

    static ToolSpy* spy_;
};

ToolSpy* DomainManagerTest::spy_ = nullptr;

// The rename succeeds with the exact records and tree; then each of its postmap runs fails in
// turn, and last its tree rename is blocked: every table and the tree must be as they were,
// with no undo step failing.
TEST_F(DomainManagerTest, RenameSucceedsOrLeavesEverythingAsItWas)
{
    DomainManager::renameDomain("old.test", "new.test");
    EXPECT_EQ(snapshot(), domainState("new.test", "old.test"));
    const auto runs = spy_->runs();
    for (size_t n = 1; n <= runs.size() + 1; ++n) {
        const bool blockTree = n > runs.size();
        const std::string what = blockTree ? "tree blocked" : "failing " + runs[n - 1];
        seedDomain("old.test");
        if (blockTree)
            fs::create_directories(kRoot + "/new.test/x");
        else
            spy_->failRun(n, "postmap: fatal: injected failure\n");
        const Snapshot want = snapshot();
        const std::string err =
            stderrOf([] { EXPECT_ANY_THROW(DomainManager::renameDomain("old.test", "new.test")); });
        EXPECT_EQ(snapshot(), want) << what;
        EXPECT_EQ(err.find("CRITICAL"), std::string::npos) << what << ": " << err;
    }
}

// A domain alias that had the host's name (no command row renames one away from it): the host
// entry comes back whole; when making it fails, the renamed records stay, without the entry.
TEST_F(DomainManagerTest, AnAliasRenamedFromTheHostNameGivesTheHostEntryBack)
{
    const Records before = stdRecords(kHost) + Records{kHost + " 1", "info@" + kHost + " info@old.test"};
    const Records renamed = stdRecords("al2.test") + Records{"al2.test 1", "info@al2.test info@old.test"};
    seed(kVirtual, before);
    spy_->clear();
    DomainManager::renameDomainAlias(kHost, "al2.test");
    EXPECT_EQ(dump(kVirtual), renamed + hostEntry());

    const auto runs = spy_->runs();
    // The rewrite's rebuild: postmap with no option, on the new table beside virtual.
    const std::string staged = kVirtual.substr(0, kVirtual.rfind('/') + 1) + ".virtual.tmp.";
    bool rewritten = false;
    for (size_t n = 1; n <= runs.size(); ++n) {
        seed(kVirtual, before);
        spy_->clear();
        spy_->failRun(n, "postmap: fatal: injected failure\n");
        const std::string err =
            stderrOf([] { EXPECT_ANY_THROW(DomainManager::renameDomainAlias(kHost, "al2.test")); });
        EXPECT_EQ(dump(kVirtual), rewritten ? renamed : before) << runs[n - 1];
        EXPECT_EQ(err.find("CRITICAL"), std::string::npos) << runs[n - 1] << ": " << err;
        rewritten = rewritten || runs[n - 1].rfind(staged, 0) == 0;
    }
    EXPECT_TRUE(rewritten);
}

TEST_F(DomainManagerTest, ADomainCreatedOffIsNotHosted)
{
    DomainManager::createDomain("dis.test", true);
    EXPECT_EQ(dump(kVirtualDomains), domainState("old.test", "old.test").at("virtual_domains"));
    EXPECT_EQ(dump(kVirtual).count("postmaster@dis.test postmaster@localhost.localdomain"), 1u);
    EXPECT_TRUE(fs::is_directory(kRoot + "/dis.test"));
}

}  // namespace
