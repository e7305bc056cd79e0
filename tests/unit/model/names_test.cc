// Mailname validation, the name checks at their limits, loopback detection and IP address
// equality (the forms a whitelist takes are rows of the settings scenario).
#include <string>

#include <gtest/gtest.h>

#include "model/names/ip_addr.h"
#include "model/names/mailname.h"
#include "model/names/name_checks.h"

namespace {

TEST(Mailname, AcceptsAndRejects)
{
    const std::pair<std::string, int> cases[] = {
        {"info", 1}, {"O'Neil+news", 1}, {"a.b-c_d&e+f'g,h", 1}, {"x", 1}, {std::string(245, 'a'), 1},
        {"", 0}, {std::string(246, 'a'), 0}, {".info", 0}, {"info.", 0}, {"in..fo", 0},
        {"in fo", 0}, {"in@fo", 0}, {"in/fo", 0}, {"jörg", 0},
    };
    for (const auto& [name, valid] : cases)
        EXPECT_EQ(is_mailname_valid(name.c_str()), valid) << "'" << name << "'";
}

// The longest names still accepted, and the ASCII lower-case forms; the hostile values are rows
// of the domain scenarios.
TEST(NameChecks, DomainsAndAddressesAtTheirLimits)
{
    const std::string label63(63, 'a');
    const std::string name253 = label63 + "." + label63 + "." + label63 + "." + std::string(61, 'b');
    for (const std::string& name : {label63 + ".test", name253, std::string("a-b.c0")})
        EXPECT_EQ(quelt::names::checkedDomain(name), name);
    EXPECT_ANY_THROW(quelt::names::checkedDomain(name253 + "b"));
    EXPECT_EQ(quelt::names::checkedDomain("B\xc3\x9c" "CHER.example"), "xn--bcher-kva.example");
    EXPECT_EQ(quelt::names::checkedAddress("Info@B\xc3\xbc" "cher.Example"), "info@xn--bcher-kva.example");
    for (const char* bad : {"info", "a@b@c.test", "@c.test", "in fo@c.test", "info@", ".a@c.test"})
        EXPECT_THROW(quelt::names::checkedAddress(bad), std::invalid_argument) << bad;
    EXPECT_EQ(quelt::names::printable("a\tb\\c\xff"), "a\\x09b\\x5cc\\xff");
}

TEST(Loopback, RecognisesEveryLoopbackForm)
{
    const std::pair<const char*, int> cases[] = {
        {"127.0.0.1", 1}, {"127.5.6.7", 1}, {"127.", 1}, {"::1", 1}, {"0:0:0:0:0:0:0:1", 1},
        {"::ffff:127.0.0.1", 1}, {"::ffff:127.9.8.7", 1}, {"10.0.0.1", 0}, {"::2", 0},
        {"::ffff:10.0.0.1", 0}, {"128.0.0.1", 0}, {"localhost", 0}, {"", 0},
    };
    for (const auto& [text, loopback] : cases)
        EXPECT_EQ(isLoopbackIP(text), loopback) << text;
}

TEST(IPAnyAddr, EqualityComparesAddressesNotPrefixes)
{
    using Network::IPAnyAddr;
    EXPECT_TRUE(IPAnyAddr("::1").addr_eq(IPAnyAddr("0:0:0:0:0:0:0:1")));
    EXPECT_TRUE(IPAnyAddr("[2001:db8::1]/64").addr_eq(IPAnyAddr("2001:DB8:0::1")));
    EXPECT_FALSE(IPAnyAddr("10.0.0.1").addr_eq(IPAnyAddr("10.0.0.2")));
    EXPECT_FALSE(IPAnyAddr("10.0.0.1").addr_eq(IPAnyAddr("::ffff:10.0.0.1")));
    EXPECT_FALSE(IPAnyAddr("mail.example").addr_eq(IPAnyAddr("MAIL.example")));
}

}  // namespace
