// Record filters over single elements, values and dumped lines (chunked dumps: the fuzz target).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/capture.h"
#include "tables/record_filters.h"

namespace db = quelt::mail::postfix::database;

namespace {

// Each filter the commands use, over single elements and value lists: kept or dropped, and
// what it becomes.
TEST(ElementFilters, KeepDropAndRewrite)
{
    using Filter = std::function<bool(std::string&)>;
    const Filter without = db::NotInDomainFilter("d.com", false);
    const Filter part = db::ReplaceDomainPart("d.com", "e.org", false);
    const std::string from = "a@d.com", to = "b@d.com";
    const Filter element = db::ReplaceElementFilterRef(from, to);
    const Filter list = db::ValueListFilter<db::NotInDomainFilter>(db::NotInDomainFilter("d.com", false));
    const Filter listPart =
        db::ValueListFilter<db::ReplaceDomainPart>(db::ReplaceDomainPart("d.com", "e.org", false));
    const struct {
        const Filter& filter;
        std::string in;
        bool kept;
        std::string out;
    } cases[] = {
        {without, "d.com", false, "d.com"},
        {without, "info@d.com", false, "info@d.com"},
        {without, "@d.com", false, "@d.com"},
        {without, "info@sub.d.com", true, "info@sub.d.com"},
        {without, "xd.com", true, "xd.com"},
        {without, "D.com", true, "D.com"},
        {without, "d.com.org", true, "d.com.org"},
        {part, "d.com", true, "e.org"},
        {part, "info@d.com", true, "info@e.org"},
        {part, "info@sub.d.com", true, "info@sub.d.com"},
        {part, "xd.com", true, "xd.com"},
        {part, "d.com/info/", true, "d.com/info/"},
        {element, "a@d.com", true, "b@d.com"},
        {element, "a@d.com/", true, "b@d.com/"},
        {element, "a@d.com//", true, "a@d.com//"},
        {element, "xa@d.com", true, "xa@d.com"},
        {list, "a@d.com,b@x.net  c@d.com", true, "b@x.net"},
        {list, "a@d.com, c@d.com", false, "a@d.com, c@d.com"},
        {list, "a\t,\n b,,,c", true, "a, b, c"},
        {list, ",a,", true, "a"},
        {listPart, "a@d.com,b@x.net  c@d.com", true, "a@e.org, b@x.net, c@e.org"},
    };
    for (const auto& c : cases) {
        std::string e = c.in;
        EXPECT_EQ(c.filter(e), c.kept) << c.in;
        EXPECT_EQ(e, c.out) << c.in;
    }
}

// (A key in the domain and a line without a value are the chunked dump's below.)
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
        {"k@x.net v@d.com", false, "", ""},
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

}  // namespace
