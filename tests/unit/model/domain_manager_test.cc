// The domain manager against the real postmap, Maildir trees and the panel database, in the
// sandbox (host name mail.sandbox.test), with a spy over postmap that counts and fails runs.
#include "model/domain_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <set>
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
const char* const kAllTables[] = {tb::kVirtualDomains, tb::kVirtual, tb::kVmailbox, tb::kAliases};

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

class DomainManagerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { spy_ = new ToolSpy("/usr/sbin/postmap"); }
    static void TearDownTestSuite() { delete spy_; }

    void SetUp() override { reset(); }

    // Empty tables, no mail tree, no panel rows, no logged runs.
    void reset()
    {
        fs::create_directories("/var/spool/postfix/quelt");
        for (const char* table : kAllTables)
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
        Records out;
        std::string all = shellOutput(spy_->real() + " -s " + table + " 2>&1");
        for (size_t at = 0, end; (end = all.find('\n', at)) != std::string::npos; at = end + 1) {
            std::string line = all.substr(at, end - at);
            if (const size_t tab = line.find('\t'); tab != std::string::npos)
                line[tab] = ' ';
            out.insert(line);
        }
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
        return {{"virtual_domains", dump(tb::kVirtualDomains)}, {"virtual", dump(tb::kVirtual)},
                {"vmailbox", dump(tb::kVmailbox)}, {"aliases", dump(tb::kAliases)}, {"tree", tree()}};
    }

    // A domain with a mailbox, a domain alias and an address at a subdomain, beside another
    // domain; the host entry exists unless the domain takes the host's name.
    static void seedDomain(const std::string& d)
    {
        seed(tb::kVirtualDomains, {d + " " + d + "/", "other.test other.test/"});
        Records virt = stdRecords(d) + Records{"info@" + d + " info@" + d + ", boss@other.test", "alias.test 1",
                                               "info@alias.test info@" + d, "x@sub." + d + " x@other.test"};
        if (d != kHost)
            virt = virt + Records{kHost + " 1"} + stdRecords(kHost);
        seed(tb::kVirtual, virt);
        seed(tb::kVmailbox, {"info@" + d + " " + d + "/info/", "a@other.test other.test/a/"});
        fs::create_directories(kRoot + "/" + d + "/info/Maildir/new");
        fs::create_directories(kRoot + "/other.test");
        spy_->clear();
    }

    // Domain old.test with the domain alias `alias` (its record, standard addresses, a mailname
    // and an address in a value list); the host entry exists unless the alias is the host's name.
    static void seedAlias(const std::string& alias)
    {
        seed(tb::kVirtualDomains, {"old.test old.test/"});
        Records virt = stdRecords("old.test") + stdRecords(alias) +
                       Records{alias + " 1", "info@" + alias + " info@old.test",
                               "x@other.test x@" + alias + ", y@b.test"};
        if (alias != kHost)
            virt = virt + Records{kHost + " 1"} + stdRecords(kHost);
        seed(tb::kVirtual, virt);
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

    // A table name as a string, for building expected postmap argument lines.
    static std::string table(const char* name) { return name; }

    static ToolSpy* spy_;
    MysqlHandle panel_;
};

ToolSpy* DomainManagerTest::spy_ = nullptr;

TEST_F(DomainManagerTest, RenameDomainMovesRecordsAndTree)
{
    seedDomain("old.test");
    DomainManager::renameDomain("old.test", "new.test");
    const Snapshot s = snapshot();
    EXPECT_EQ(s.at("virtual_domains"), (Records{"new.test new.test/", "other.test other.test/"}));
    const Records virt{"info@new.test info@new.test, boss@other.test", "alias.test 1",
                       "info@alias.test info@new.test", "x@sub.old.test x@other.test", kHost + " 1"};
    EXPECT_EQ(s.at("virtual"), stdRecords("new.test") + stdRecords(kHost) + virt);
    EXPECT_EQ(s.at("vmailbox"), (Records{"info@new.test new.test/info/", "a@other.test other.test/a/"}));
    EXPECT_EQ(s.at("tree"), (Records{"new.test", "new.test/info", "new.test/info/Maildir",
                                     "new.test/info/Maildir/new", "other.test"}));
}

TEST_F(DomainManagerTest, RenameDomainToAndFromTheHostName)
{
    // The entry goes before anything else is touched; a differently cased name still matches
    // (the exact records are checked after the last, exactly cased run).
    for (const std::string& to : {std::string("MAIL.Sandbox.test"), kHost}) {
        const auto runs = runsOf([] { seedDomain("old.test"); }, [&] { DomainManager::renameDomain("old.test", to); });
        ASSERT_GE(runs.size(), 2u) << to;
        EXPECT_EQ(runs[0], "-d " + kHost + " " + tb::kVirtual) << to;
        EXPECT_EQ(runs[1], "-d - " + table(tb::kVirtual)) << to;
        EXPECT_EQ(dump(tb::kVirtual).count(kHost + " 1"), 0u) << to;
    }
    const Records toHost{"info@" + kHost + " info@" + kHost + ", boss@other.test", "alias.test 1",
                         "info@alias.test info@" + kHost, "x@sub.old.test x@other.test"};
    EXPECT_EQ(dump(tb::kVirtual), stdRecords(kHost) + toHost);

    reset();
    seedDomain(kHost);
    DomainManager::renameDomain(kHost, "new.test");
    const Records fromHost{kHost + " 1", "info@new.test info@new.test, boss@other.test", "alias.test 1",
                           "info@alias.test info@new.test", "x@sub." + kHost + " x@other.test"};
    EXPECT_EQ(dump(tb::kVirtual), stdRecords("new.test") + stdRecords(kHost) + fromHost);
    EXPECT_TRUE(fs::is_directory(kRoot + "/new.test/info/Maildir"));
}

// Each postmap run of a rename fails in turn, then the tree rename is blocked: every table and
// the tree must be as they were, with no undo step failing.
TEST_F(DomainManagerTest, RenameDomainFailureAtAnyStepRestoresEverything)
{
    const std::vector<std::pair<std::string, std::string>> renames{
        {"old.test", "new.test"}, {"old.test", kHost}, {kHost, "new.test"}};
    for (const auto& [from, to] : renames) {
        const auto prepare = [from = from] { seedDomain(from); };
        const auto rename = [from = from, to = to] { DomainManager::renameDomain(from, to); };
        const auto runs = runsOf(prepare, rename);
        for (size_t n = 1; n <= runs.size() + 1; ++n) {
            const bool blockTree = n > runs.size();
            const std::string what = from + " -> " + to + ", " +
                                     (blockTree ? "tree blocked" : "failing run " + std::to_string(n) + ": " + runs[n - 1]);
            reset();
            prepare();
            if (blockTree)
                fs::create_directories(kRoot + "/" + to + "/x");
            else
                spy_->failRun(n, kInjected);
            const Snapshot before = snapshot();
            CaptureFd err(2);
            EXPECT_THROW(rename(), std::exception) << what;
            err.restore();
            EXPECT_EQ(snapshot(), before) << what;
            EXPECT_EQ(err.text().find("CRITICAL"), std::string::npos) << what << ": " << err.text();
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
        if (runs[i] == "-s " + table(tb::kVirtualDomains))
            undoDump = i + 1;
    ASSERT_GT(undoDump, 2u) << "the virtual_domains step was not undone";

    reset();
    prepare();
    const Snapshot before = snapshot();
    spy_->failRun(undoDump, kInjected);
    CaptureFd err(2);
    rename();
    err.restore();
    EXPECT_EQ(err.text(), "CRITICAL ERROR: Unable to properly restore Postfix Virtual Domains Database used by "
                          "Quelt.\nMail system may be not usable at the moment and it cannot be repaired "
                          "automatically.\nConstact Korvaneth support to resolve this issue.\n");
    const Snapshot after = snapshot();
    EXPECT_EQ(after.at("virtual_domains"), (Records{"new.test new.test/", "other.test other.test/"}));
    EXPECT_EQ(after.at("virtual"), before.at("virtual"));
    EXPECT_EQ(after.at("vmailbox"), before.at("vmailbox"));
}

TEST_F(DomainManagerTest, RenameDomainAlias)
{
    const auto renamed = [](const std::string& to) {
        return stdRecords("old.test") + stdRecords(to) +
               Records{to + " 1", "info@" + to + " info@old.test", "x@other.test x@" + to + ", y@b.test"};
    };
    const std::vector<std::pair<std::string, std::string>> renames{
        {"al.test", "al2.test"}, {"al.test", kHost}, {kHost, "al2.test"}};
    for (const auto& [from, to] : renames) {
        const auto prepare = [from = from] { seedAlias(from); };
        const auto rename = [from = from, to = to] { DomainManager::renameDomainAlias(from, to); };
        const Records hostEntry = Records{kHost + " 1"} + stdRecords(kHost);
        const Records success = renamed(to) + (to == kHost ? Records{} : hostEntry);
        const auto runs = runsOf(prepare, rename);
        EXPECT_EQ(dump(tb::kVirtual), success) << from << " -> " << to;
        EXPECT_EQ(dump(tb::kVirtualDomains), Records{"old.test old.test/"});

        // Up to the table rewrite everything comes back; the rewrite itself is not undone when
        // re-creating the host entry fails, but the entry is not left half made.
        bool rewritten = false;
        for (size_t n = 1; n <= runs.size(); ++n) {
            const std::string what = from + " -> " + to + ", failing run " + std::to_string(n) + ": " + runs[n - 1];
            reset();
            prepare();
            const Records before = dump(tb::kVirtual);
            spy_->failRun(n, kInjected);
            EXPECT_THROW(rename(), std::exception) << what;
            EXPECT_EQ(dump(tb::kVirtual), rewritten ? success - hostEntry : before) << what;
            rewritten = rewritten || runs[n - 1] == table(tb::kVirtual);
        }
    }
}

TEST_F(DomainManagerTest, NewDomainRecords)
{
    seed(tb::kVirtual, {"dis.test 1", "info@dis.test info@main.test", "x@y.test a@dis.test"});
    DomainManager::createDomain("dis.test", true);
    EXPECT_EQ(dump(tb::kVirtualDomains), Records{}) << "a disabled domain is not hosted";
    EXPECT_EQ(dump(tb::kVirtual), stdRecords("dis.test")) << "the former alias's records go first";
    EXPECT_TRUE(fs::is_directory(kRoot + "/dis.test"));

    DomainManager::createDomain("on.test", false);
    DomainManager::enableDomain("dis.test");
    EXPECT_EQ(dump(tb::kVirtualDomains), (Records{"dis.test dis.test/", "on.test on.test/"}));
    EXPECT_EQ(dump(tb::kVirtual), stdRecords("dis.test") + stdRecords("on.test"));

    DomainManager::disableDomain("on.test");
    EXPECT_EQ(dump(tb::kVirtualDomains), Records{"dis.test dis.test/"});
    EXPECT_EQ(dump(tb::kVirtual), stdRecords("dis.test"));
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
        seed(tb::kVirtual, {"@else.test x@else.test"});
        spy_->clear();
    }
};

const Records kCatchall{"@main.test boss@else.test", "@a1.test boss@else.test", "@a2.test boss@else.test",
                        "@else.test x@else.test"};
const Records kBounce{"@main.test _quelt_bounce_main.test@localhost.localdomain",
                      "@a1.test _quelt_bounce_a1.test@localhost.localdomain",
                      "@a2.test _quelt_bounce_a2.test@localhost.localdomain", "@else.test x@else.test"};

TEST_F(PanelDomainTest, BounceReplacesCatchallInOneVirtualRun)
{
    DomainManager::createCatchall("main.test", "boss@else.test");
    EXPECT_EQ(dump(tb::kVirtual), kCatchall);

    spy_->clear();
    DomainManager::setBounce("main.test", "");
    const std::string aliasesRun = "-r -i " + table(tb::kAliases);
    EXPECT_EQ(spy_->runs(), (std::vector<std::string>{aliasesRun, aliasesRun, aliasesRun,
                                                      "-r -i " + table(tb::kVirtual)}));
    EXPECT_EQ(dump(tb::kVirtual), kBounce);
    const std::string command = " \"|/usr/lib/quelt-9.0/bouncemessage\"";
    EXPECT_EQ(dump(tb::kAliases), (Records{"_quelt_bounce_main.test" + command, "_quelt_bounce_a1.test" + command,
                                           "_quelt_bounce_a2.test" + command}));
}

TEST_F(PanelDomainTest, BounceMessageIsQuotedTwice)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "\"|/usr/lib/quelt-9.0/bouncemessage\""},
        {"Sorry, no", "\"|/usr/lib/quelt-9.0/bouncemessage Sorry,\\\\\\ no\""},
        {"Gone.\nBye", "\"|/usr/lib/quelt-9.0/bouncemessage Gone.\\\\\\ Bye\""},
        {"it's $5", "\"|/usr/lib/quelt-9.0/bouncemessage it\\\\\\'s\\\\\\ \\\\\\$5\""},
    };
    for (const auto& [message, stored] : cases) {
        pf::BatchDatabaseHelper batch(true, true);
        DomainManager::setBounceFor(batch, {"q.test"}, message);
        EXPECT_EQ(dump(tb::kAliases), Records{"_quelt_bounce_q.test " + stored}) << message;
    }
}

TEST_F(PanelDomainTest, RemoveCatchallRejectsForDomainAndAliases)
{
    DomainManager::createStandardDomainAddresses("main.test");
    DomainManager::setBounce("main.test", "x");
    spy_->clear();
    DomainManager::removeCatchall("main.test");
    EXPECT_EQ(spy_->runs(), std::vector<std::string>{"-d - " + table(tb::kVirtual)});
    EXPECT_EQ(dump(tb::kVirtual), stdRecords("main.test") + Records{"@else.test x@else.test"});
    EXPECT_EQ(dump(tb::kAliases).size(), 3u) << "the bounce commands stay";
}

TEST_F(PanelDomainTest, DomainAliasRecordsComeFromThePanel)
{
    DomainManager::createDomainAlias("main.test", "al.test");
    const Records records{"al.test 1", "info@al.test info@main.test", "sales@al.test sales@main.test",
                          "shop@al.test sales@main.test", "store@al.test sales@main.test", "@else.test x@else.test"};
    EXPECT_EQ(dump(tb::kVirtual), stdRecords("al.test") + records);

    DomainManager::removeDomainAlias("al.test");
    EXPECT_EQ(dump(tb::kVirtual), Records{"@else.test x@else.test"});
}

TEST_F(PanelDomainTest, RemoveDomainKeepsTheBounceCommand)
{
    DomainManager::createDomain("main.test", false);
    DomainManager::setBounce("main.test", "Gone");
    seed(tb::kVmailbox, {"info@main.test main.test/info/", "a@else.test else.test/a/"});
    fs::create_directories(kRoot + "/main.test/info");
    const Records aliases = dump(tb::kAliases);

    DomainManager::removeDomain("main.test", OnRemoval::Remove);
    EXPECT_EQ(dump(tb::kVirtualDomains), Records{});
    EXPECT_EQ(dump(tb::kVirtual), kBounce - Records{"@main.test _quelt_bounce_main.test@localhost.localdomain"});
    EXPECT_EQ(dump(tb::kVmailbox), Records{"a@else.test else.test/a/"});
    EXPECT_EQ(dump(tb::kAliases), aliases);
    EXPECT_EQ(tree(), Records{}) << "the domain's tree is deleted";
}

}  // namespace
