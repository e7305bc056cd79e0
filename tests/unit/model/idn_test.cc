// IDNA conversions at the name checks: known ASCII forms of non-ASCII names, and the failures
// libidn reports with their texts.
#include <gtest/gtest.h>

#include "model/names/idn.h"

namespace {

using quelt::idn::IdnaError;

TEST(Idn, ConvertsNonAsciiNames)
{
    const struct {
        const char* utf8;
        const char* ascii;
    } cases[] = {
        {"münchen.de", "xn--mnchen-3ya.de"},
        {"пример.рф", "xn--e1afmkfd.xn--p1ai"},
        {"example.com", "example.com"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(quelt::idn::toAscii(c.utf8), c.ascii) << c.utf8;
    // Nameprep folds case in non-ASCII labels.
    EXPECT_EQ(quelt::idn::toAscii("MÜNCHEN.de"), "xn--mnchen-3ya.de");
}

TEST(Idn, FailuresCarryLibidnsCodeAndText)
{
    const auto failure = [](const std::string& name) {
        try {
            quelt::idn::toAscii(name);
        } catch (const IdnaError& e) {
            return std::to_string(e.code()) + " " + e.what();
        }
        return std::string("converted");
    };
    const std::string tooLong = std::string(70, 'a') + "ü.com";
    EXPECT_EQ(failure(tooLong), "5 Invalid length") << "a 71-character label";
    EXPECT_EQ(failure("xn--ü.com"), "8 ACE prefix found") << "an ACE-prefixed non-ASCII label";
}

}  // namespace
