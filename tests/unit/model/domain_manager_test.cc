// The domain manager against the real postmap, Maildir trees and the panel database, in the
// sandbox (host name mail.sandbox.test), with a spy over postmap that counts and fails runs.
#include "model/managers/domain_manager.h"

#include <gtest/gtest.h>
#include <strings.h>

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "auth/panel_db.h"
#include "support/capture.h"
#include "support/tool_spy.h"
#include "tables/database_helper.h"
#include "tables/table_names.h"

namespace pf = quelt::mail::postfix;
namespace tb = quelt::mail::postfix::tables;
namespace fs = std::filesystem;
using pf::DomainManager;
using quelt::mail::OnRemoval;

namespace {

// A table's records as "key value" lines.
using Records = std::set<std::string>;
// Every table and the mail tree, by name.
using Snapshot = std::map<std::string, Records>;

const std::string kHost = "mail.sandbox.test";
const std::string kRoot = "/var/qmail/mailnames";
const std::string kInjected = "postmap: fatal: injected failure\n";
const std::string kVirtual = tb::kVirtual, kAliases = tb::kAliases, kVirtualDomains = tb::kVirtualDomains;

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

Records operator-(Records a, const Records& b)
{
    for (const auto& r : b)
        a.erase(r);
    return a;
}

bool isHost(const std::string& name) { return ::strcasecmp(name.c_str(), kHost.c_str()) == 0; }

// The host's own entry, in virtual while no domain or alias takes its name.
Records hostEntryUnless(const std::string& domain)
{
    return isHost(domain) ? Records{} : Records{kHost + " 1"} + stdRecords(kHost);
}

// seedDomain(from) after renaming its domain to `to`.
Snapshot renamedDomain(const std::string& from, const std::string& to)
{
    return {{"virtual_domains", {to + " " + to + "/", "other.test other.test/"}},
            {"virtual", stdRecords(to) + hostEntryUnless(to) +
                            Records{"info@" + to + " info@" + to + ", boss@other.test", "alias.test 1",
                                    "info@alias.test info@" + to, "x@sub." + from + " x@other.test"}},
            {"vmailbox", {"info@" + to + " " + to + "/info/", "a@other.test other.test/a/"}},
            {"aliases", {}},
            {"tree", {to, to + "/info", to + "/info/Maildir", to + "/info/Maildir/new", "other.test"}}};
}

// The virtual records of domain old.test with the domain alias `alias`: its record, standard
// addresses, a mailname, and the alias in another address's value list.
Records aliasVirtual(const std::string& alias)
{
    return stdRecords("old.test") + stdRecords(alias) + hostEntryUnless(alias) +
           Records{alias + " 1", "info@" + alias + " info@old.test", "x@other.test x@" + alias + ", y@b.test"};
}

class DomainManagerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { spy_ = new ToolSpy("/usr/sbin/postmap"); }
    static void TearDownTestSuite() { delete spy_; }

    void SetUp() override { reset(); }

    // Empty tables, no mail tree, no panel rows, no logged runs.
    void reset()
    {
        fs::create_directories("/var/spool/postfix/quelt");
        for (const std::string& table : {kVirtualDomains, kVirtual, std::string(tb::kVmailbox), kAliases})
            seed(table, {});
        fs::remove_all(kRoot);
        panel_ = db_connect();
        ASSERT_TRUE(panel_) << "the sandbox's MariaDB server is not reachable";
        for (const char* table : {"domains", "domainaliases", "mail", "mail_aliases"})
            sql(std::string("DELETE FROM ") + table);
        spy_->clear();
    }

    void sql(const std::string& statement)
    {
        ASSERT_EQ(mysql_query(panel_.get(), statement.c_str()), 0) << statement << ": " << mysql_error(panel_.get());
    }

    static void seed(const std::string& table, const Records& records)
    {
        std::vector<std::pair<std::string, std::string>> pairs;
        for (const auto& r : records)
            pairs.emplace_back(r.substr(0, r.find(' ')), r.substr(r.find(' ') + 1));
        pf::DatabaseHelper::replaceRecords(table, pairs.begin(), pairs.end());
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

    static Records tree()
    {
        Records out;
        if (fs::exists(kRoot))
            for (const auto& entry : fs::recursive_directory_iterator(kRoot))
                out.insert(fs::relative(entry.path(), kRoot).string());
        return out;
    }

    static Snapshot snapshot()
    {
        return {{"virtual_domains", dump(kVirtualDomains)}, {"virtual", dump(kVirtual)},
                {"vmailbox", dump(tb::kVmailbox)}, {"aliases", dump(kAliases)}, {"tree", tree()}};
    }

    // A domain with a mailbox, a domain alias and an address at a subdomain, beside another domain.
    static void seedDomain(const std::string& d)
    {
        seed(kVirtualDomains, {d + " " + d + "/", "other.test other.test/"});
        seed(kVirtual, stdRecords(d) + hostEntryUnless(d) +
                           Records{"info@" + d + " info@" + d + ", boss@other.test", "alias.test 1",
                                   "info@alias.test info@" + d, "x@sub." + d + " x@other.test"});
        seed(tb::kVmailbox, {"info@" + d + " " + d + "/info/", "a@other.test other.test/a/"});
        fs::create_directories(kRoot + "/" + d + "/info/Maildir/new");
        fs::create_directories(kRoot + "/other.test");
        spy_->clear();
    }

    static void seedAlias(const std::string& alias)
    {
        seed(kVirtualDomains, {"old.test old.test/"});
        seed(kVirtual, aliasVirtual(alias));
        spy_->clear();
    }

    // The postmap runs `op` makes from the state `prepare` leaves.
    std::vector<std::string> runsOf(const std::function<void()>& prepare, const std::function<void()>& op)
    {
        reset();
        prepare();
        op();
        return spy_->runs();
    }

    static ToolSpy* spy_;
    MysqlHandle panel_;
};

ToolSpy* DomainManagerTest::spy_ = nullptr;

// Each rename succeeds with the exact records and tree; then each of its postmap runs fails in
// turn (and for a domain, last, its tree rename is blocked): every table and the tree must be as
// they were, with no undo step failing. A domain alias's table rewrite is the exception: it is
// not undone when re-creating the host entry fails, but the entry is not left half made.
TEST_F(DomainManagerTest, RenamesSucceedOrLeaveEverythingAsItWas)
{
    const struct {
        bool alias;
        std::string from, to;
    } renames[] = {
        {false, "old.test", "new.test"}, {false, "old.test", kHost}, {false, kHost, "new.test"},
        {false, "old.test", "MAIL.Sandbox.test"}, {true, "al.test", "al2.test"}, {true, "al.test", kHost},
        {true, kHost, "al2.test"},
    };
    for (const auto& r : renames) {
        const std::string label = (r.alias ? "alias " : "domain ") + r.from + " -> " + r.to;
        const auto prepare = [&r] { r.alias ? seedAlias(r.from) : seedDomain(r.from); };
        const auto rename = [&r] {
            r.alias ? DomainManager::renameDomainAlias(r.from, r.to) : DomainManager::renameDomain(r.from, r.to);
        };
        const auto runs = runsOf(prepare, rename);
        Snapshot success = renamedDomain(r.from, r.to);
        if (r.alias)
            success = {{"virtual_domains", {"old.test old.test/"}}, {"virtual", aliasVirtual(r.to)},
                       {"vmailbox", {}}, {"aliases", {}}, {"tree", {}}};
        if (isHost(r.to) && !r.alias) {
            // The host entry goes before anything else is touched, whatever the name's case.
            ASSERT_GE(runs.size(), 2u) << label;
            EXPECT_EQ(runs[0], "-d " + kHost + " " + kVirtual) << label;
            EXPECT_EQ(runs[1], "-d - " + kVirtual) << label;
            EXPECT_EQ(dump(kVirtual).count(kHost + " 1"), 0u) << label;
        }
        if (r.to != kHost && isHost(r.to))
            continue;  // postmap folds keys to lower case: the records differ from the given name
        EXPECT_EQ(snapshot(), success) << label;

        bool rewritten = false;
        for (size_t n = 1; n <= runs.size() + !r.alias; ++n) {
            const bool blockTree = n > runs.size();
            const std::string what = label + (blockTree ? ", tree blocked" : ", failing run " + std::to_string(n) + ": " + runs[n - 1]);
            reset();
            prepare();
            if (blockTree)
                fs::create_directories(kRoot + "/" + r.to + "/x");
            else
                spy_->failRun(n, kInjected);
            Snapshot want = snapshot();
            if (rewritten)
                want["virtual"] = success["virtual"] - hostEntryUnless(r.to);
            const std::string err = stderrOf([&] { EXPECT_THROW(rename(), std::exception) << what; });
            EXPECT_EQ(snapshot(), want) << what;
            EXPECT_EQ(err.find("CRITICAL"), std::string::npos) << what << ": " << err;
            // The rewrite's rebuild: postmap with no option, on the new table beside virtual.
            const std::string staged = kVirtual.substr(0, kVirtual.rfind('/') + 1) + ".virtual.tmp.";
            rewritten = rewritten || (r.alias && runs[n - 1].rfind(staged, 0) == 0);
        }
    }
}

TEST_F(DomainManagerTest, FailedUndoStepIsReportedAndTheOthersStillRun)
{
    const auto prepare = [] {
        seedDomain("old.test");
        fs::create_directories(kRoot + "/new.test");
    };
    const auto rename = [] { EXPECT_THROW(DomainManager::renameDomain("old.test", "new.test"), std::exception); };
    const auto runs = runsOf(prepare, rename);
    // The undo of the virtual_domains step is the last dump of that table.
    size_t undoDump = 0;
    for (size_t i = 0; i < runs.size(); ++i)
        if (runs[i] == "-s " + kVirtualDomains)
            undoDump = i + 1;
    ASSERT_GT(undoDump, 2u) << "the virtual_domains step was not undone";

    reset();
    prepare();
    const Snapshot before = snapshot();
    spy_->failRun(undoDump, kInjected);
    EXPECT_EQ(stderrOf(rename), "CRITICAL ERROR: Unable to properly restore Postfix Virtual Domains Database used "
                                "by Quelt.\nMail system may be not usable at the moment and it cannot be repaired "
                                "automatically.\nConstact Korvaneth support to resolve this issue.\n");
    Snapshot want = before;
    want["virtual_domains"] = {"new.test new.test/", "other.test other.test/"};
    EXPECT_EQ(snapshot(), want);
}

// No command creates a domain switched off yet.
TEST_F(DomainManagerTest, ADomainCreatedOffIsNotHosted)
{
    DomainManager::createDomain("dis.test", true);
    EXPECT_EQ(dump(kVirtualDomains), Records{});
    EXPECT_EQ(dump(kVirtual), stdRecords("dis.test"));
    EXPECT_TRUE(fs::is_directory(kRoot + "/dis.test"));
}

// main.test with the domain aliases a1.test and a2.test, mailnames info and sales (sales with
// the mail aliases shop and store), and a record of an unrelated domain.
class PanelDomainTest : public DomainManagerTest {
protected:
    void SetUp() override
    {
        DomainManagerTest::SetUp();
        sql("INSERT INTO domains (id, name) VALUES (1, 'main.test')");
        sql("INSERT INTO domainaliases (name, dom_id) VALUES ('a1.test', 1), ('a2.test', 1)");
        sql("INSERT INTO mail (id, mail_name, dom_id) VALUES (10, 'info', 1), (11, 'sales', 1)");
        sql("INSERT INTO mail_aliases (mn_id, alias) VALUES (11, 'shop'), (11, 'store')");
        seed(kVirtual, {"@else.test x@else.test"});
        spy_->clear();
    }
};

const std::string kBouncer = " \"|/usr/lib/quelt-9.0/bouncemessage";

// The catch-all (or, with no address, the bounce) records of main.test and its aliases.
Records catchall(const std::string& address)
{
    Records out{"@else.test x@else.test"};
    for (const char* d : {"main.test", "a1.test", "a2.test"})
        out.insert("@" + std::string(d) + " " +
                   (address.empty() ? "_quelt_bounce_" + std::string(d) + "@localhost.localdomain" : address));
    return out;
}

TEST_F(PanelDomainTest, BounceReplacesCatchallInOneVirtualRun)
{
    DomainManager::createCatchall("main.test", "boss@else.test");
    EXPECT_EQ(dump(kVirtual), catchall("boss@else.test"));

    spy_->clear();
    DomainManager::setBounce("main.test", "");
    const std::string aliasesRun = "-r -i " + kAliases;
    EXPECT_EQ(spy_->runs(), (std::vector<std::string>{aliasesRun, aliasesRun, aliasesRun, "-r -i " + kVirtual}));
    EXPECT_EQ(dump(kVirtual), catchall(""));
    EXPECT_EQ(dump(kAliases), (Records{"_quelt_bounce_main.test" + kBouncer + "\"",
                                       "_quelt_bounce_a1.test" + kBouncer + "\"",
                                       "_quelt_bounce_a2.test" + kBouncer + "\""}));

    spy_->clear();
    DomainManager::removeCatchall("main.test");
    EXPECT_EQ(spy_->runs(), std::vector<std::string>{"-d - " + kVirtual});
    EXPECT_EQ(dump(kVirtual), Records{"@else.test x@else.test"});
    EXPECT_EQ(dump(kAliases).size(), 3u) << "the bounce commands stay";
}

TEST_F(PanelDomainTest, BounceMessageIsQuotedTwice)
{
    const std::pair<std::string, std::string> cases[] = {
        {"Sorry, no", " Sorry,\\\\\\ no"},
        {"Gone.\nBye", " Gone.\\\\\\ Bye"},
        {"it's $5", " it\\\\\\'s\\\\\\ \\\\\\$5"},
    };
    for (const auto& [message, stored] : cases) {
        pf::BatchDatabaseHelper batch(true, true);
        DomainManager::setBounceFor(batch, {"q.test"}, message);
        EXPECT_EQ(dump(kAliases), Records{"_quelt_bounce_q.test" + kBouncer + stored + "\""}) << message;
    }
}

TEST_F(PanelDomainTest, DomainAliasRecordsComeFromThePanel)
{
    DomainManager::createDomainAlias("main.test", "al.test");
    const Records records{"al.test 1", "info@al.test info@main.test", "sales@al.test sales@main.test",
                          "shop@al.test sales@main.test", "store@al.test sales@main.test", "@else.test x@else.test"};
    EXPECT_EQ(dump(kVirtual), stdRecords("al.test") + records);

    DomainManager::removeDomainAlias("al.test");
    EXPECT_EQ(dump(kVirtual), Records{"@else.test x@else.test"});
}

}  // namespace
