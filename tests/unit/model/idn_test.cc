// The failures libidn reports, with their codes and texts (the ASCII forms of non-ASCII names
// are the name checks' tests and the rows').
#include <gtest/gtest.h>

#include "model/names/idn.h"

namespace {

using quelt::idn::IdnaError;

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
