// Record filters over single elements, values, dumped lines and chunked dumps.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "tables/data_stream_filter.h"
#include "tables/record_filters.h"

namespace db = quelt::mail::postfix::database;

namespace {

struct ElementCase {
    std::string in;
    bool kept;
    std::string out;
};

template <class F>
void expectElements(const F& filter, const std::vector<ElementCase>& cases)
{
    for (const auto& c : cases) {
        std::string e = c.in;
        EXPECT_EQ(filter(e), c.kept) << c.in;
        EXPECT_EQ(e, c.out) << c.in;
    }
}

TEST(ElementFilters, NotInDomainWithAndWithoutSubdomains)
{
    const struct {
        const char* in;
        bool keptWithout, keptWith;
    } cases[] = {
        {"d.com", false, false}, {"info@d.com", false, false}, {"@d.com", false, false},
        {"info@sub.d.com", true, false}, {"sub.d.com", true, false}, {"xd.com", true, true},
        {"info@xd.com", true, true}, {"D.com", true, true}, {"d.com.org", true, true},
    };
    const db::NotInDomainFilter without("d.com", false), with("d.com", true);
    for (const auto& c : cases) {
        std::string e = c.in;
        EXPECT_EQ(without(e), c.keptWithout) << c.in;
        EXPECT_EQ(with(e), c.keptWith) << c.in;
        EXPECT_EQ(e, c.in);
    }
}

TEST(ElementFilters, ReplaceDomainPart)
{
    expectElements(db::ReplaceDomainPart("d.com", "e.org", false), {
        {"d.com", true, "e.org"},
        {"info@d.com", true, "info@e.org"},
        {"info@sub.d.com", true, "info@sub.d.com"},
        {"sub.d.com", true, "sub.d.com"},
        {"xd.com", true, "xd.com"},
        {"d.com/info/", true, "d.com/info/"},
    });
    expectElements(db::ReplaceDomainPart("d.com", "e.org", true), {
        {"sub.d.com", true, "sub.e.org"},
        {"info@sub.d.com", true, "info@sub.e.org"},
        {"xd.com", true, "xd.com"},
        {"info@d.com", true, "info@e.org"},
    });
}

TEST(ElementFilters, ReplaceDomainPathTestsThePrefixOnly)
{
    expectElements(db::ReplaceDomainPath("d.com", "e.org"), {
        {"d.com/user/", true, "e.org/user/"},
        {"d.comx/user/", true, "e.orgx/user/"},
        {"xd.com/user/", true, "xd.com/user/"},
        {"d.co", true, "d.co"},
    });
}

TEST(ElementFilters, ReplaceElementExactOrWithSlash)
{
    const std::string from = "a@d.com", to = "b@d.com";
    expectElements(db::ReplaceElementFilterRef(from, to), {
        {"a@d.com", true, "b@d.com"},
        {"a@d.com/", true, "b@d.com/"},
        {"a@d.com//", true, "a@d.com//"},
        {"xa@d.com", true, "xa@d.com"},
        {"a@d.comx", true, "a@d.comx"},
    });
}

TEST(ValueListFilter, SplitsOnSeparatorRunsAndJoinsWithCommaSpace)
{
    expectElements(db::ValueListFilter<db::NotInDomainFilter>(db::NotInDomainFilter("d.com", false)), {
        {"a@d.com,b@x.net  c@d.com", true, "b@x.net"},
        {"a@d.com, c@d.com", false, "a@d.com, c@d.com"},
        {"a,b", true, "a, b"},
        {"a\t,\n b,,,c", true, "a, b, c"},
        {",a,", true, "a"},
    });
    expectElements(db::ValueListFilter<db::ReplaceDomainPart>(db::ReplaceDomainPart("d.com", "e.org", false)),
                   {{"a@d.com,b@x.net  c@d.com", true, "a@e.org, b@x.net, c@e.org"}});
}

TEST(KeyValueFilter, LinesAreSplitTrimmedAndRejoined)
{
    struct Case {
        std::string in;
        bool kept;
        std::string out;
        std::string log;
    };
    const db::ElementsFilter<db::NotInDomainFilter> filter(db::NotInDomainFilter("d.com", false));
    const std::vector<Case> cases = {
        {"k@x.net\t  v@x.net  ", true, "k@x.net v@x.net", ""},
        {"k@x.net a,b", true, "k@x.net a, b", ""},
        {"k@x.net ", false, "", ""},
        {"k@x.net \t ", false, "", ""},
        {"k@d.com v@x.net", false, "", ""},
        {"k@x.net v@d.com", false, "", ""},
        {"nokeyvalue", false, "", "invalid key/value 'nokeyvalue'\n"},
        {"", false, "", "invalid key/value ''\n"},
    };
    for (const auto& c : cases) {
        std::string line = c.in;
        EXPECT_EQ(stderrOf([&] { EXPECT_EQ(filter(line), c.kept) << c.in; }), c.log) << c.in;
        if (c.kept) {
            EXPECT_EQ(line, c.out) << c.in;
        }
    }
}

TEST(KeyValueFilter, MailboxRenameTreatsTheValueAsOneElement)
{
    const std::string from = "a@d.com", to = "b@d.com", fromPath = "d.com/a/", toPath = "d.com/b/";
    expectElements(db::KeyValueFilter<db::ReplaceElementFilterRef, db::ReplaceElementFilterRef>(
                       db::ReplaceElementFilterRef(from, to), db::ReplaceElementFilterRef(fromPath, toPath)),
                   {{"a@d.com d.com/a/", true, "b@d.com d.com/b/"}, {"c@d.com d.com/a/, x", true, "c@d.com d.com/a/, x"}});
    expectElements(db::KeyValueFilter<db::ReplaceDomainPart, db::ReplaceDomainPath>(
                       db::ReplaceDomainPart("d.com", "e.org", false), db::ReplaceDomainPath("d.com", "e.org")),
                   {{"u@d.com d.com/u/", true, "u@e.org e.org/u/"}});
}

// The dump arrives in arbitrary pieces; the result must not depend on where they are cut.
TEST(DataStreamFilter, ResultDoesNotDependOnChunkBoundaries)
{
    const std::string dump =
        "a@d.com\tx@y.net\n"
        "b@x.net\tc@d.com,z@y.net\n"
        "d.com\tvirtual\n"
        "broken\n"
        "e@x.net\tf@x.net";
    const std::string want = "b@x.net z@y.net\ne@x.net f@x.net\n";
    for (std::size_t piece : {1, 2, 3, 7, 16, 1024}) {
        std::ostringstream out;
        db::DataStreamFilter<db::ElementsFilter<db::NotInDomainFilter>> stream(
            db::ElementsFilter<db::NotInDomainFilter>(db::NotInDomainFilter("d.com", false)), out);
        const std::string err = stderrOf([&] {
            for (std::size_t at = 0; at < dump.size(); at += piece) {
                const std::string part = dump.substr(at, piece);
                stream.filterChunk(std::vector<char>(part.begin(), part.end()));
            }
            EXPECT_EQ(out.str(), "b@x.net z@y.net\n") << "before finish, chunks of " << piece;
            stream.finish();
        });
        EXPECT_EQ(out.str(), want) << "chunks of " << piece;
        EXPECT_EQ(err, "invalid key/value 'broken'\n") << "chunks of " << piece;
    }
}

}  // namespace
