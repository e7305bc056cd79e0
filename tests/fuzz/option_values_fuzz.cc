// libFuzzer target of the option value parsers and the name checks at the command boundary:
// numbers read back as themselves, option values are accepted exactly in their documented
// forms, and a checked name is a fixed point of its check and holds nothing a table line,
// a path or a command line could break on.
#include <cstdint>
#include <string>
#include <vector>

#include <boost/program_options/errors.hpp>

#include "front/commands/option_values.h"
#include "fuzz_check.h"
#include "model/names/idn.h"
#include "model/names/name_checks.h"
#include "runtime/ascii_numeric.h"

namespace cmd = quelt::mail::postfix::mailrig_commands;
namespace names = quelt::names;

namespace {

// Domains: letters, digits, "-" and "."; mailnames add "_ & + ' ,"; addresses one "@".
void checkClean(const std::string& name, const char* what)
{
    const auto allowed = name.find('@') != std::string::npos ? "abcdefghijklmnopqrstuvwxyz0123456789-._&+',@"
                                                             : "abcdefghijklmnopqrstuvwxyz0123456789-._&+',";
    if (name.empty() || name.find_first_not_of(allowed) != std::string::npos || name.front() == '.' ||
        name.find("..") != std::string::npos || name.find('@') != name.rfind('@'))
        fuzzFailure("option values", what);
}

template <class Check>
void checkFixedPoint(const std::string& text, Check check, const char* what)
{
    std::string once;
    try {
        once = check(text);
    } catch (const std::invalid_argument&) {
        return;
    } catch (const quelt::idn::IdnaError&) {
        return;
    }
    checkClean(once, what);
    if (check(once) != once)
        fuzzFailure("option values", "a checked name changes when checked again");
}

template <class T>
bool accepted(const std::string& text, T* type)
{
    boost::any out;
    try {
        cmd::validate(out, std::vector<std::string>{text}, type, 0);
    } catch (const boost::program_options::error&) {
        return false;
    }
    return !out.empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    // Option values come from the command line, which cannot hold a NUL byte.
    if (text.find('\0') != std::string::npos)
        return 0;

    std::uint16_t number = 0;
    if (Util::ASCIIToNumeric(text, number)) {
        std::uint16_t again = 0;
        if (!Util::ASCIIToNumeric(std::to_string(number), again) || again != number)
            fuzzFailure("option values", "a number does not read back");
        if (text.find('-') != std::string::npos)
            fuzzFailure("option values", "a negative number is accepted");
    }
    if (accepted(text, static_cast<cmd::IPMask*>(nullptr)) != (Util::ASCIIToNumeric(text, number) && number <= 128))
        fuzzFailure("option values", "a prefix length outside 0..128 or refused inside it");
    if (accepted(text, static_cast<cmd::ShortnameFormat*>(nullptr)) != (text == "compound" || text == "both"))
        fuzzFailure("option values", "an account format other than compound or both");
    static const std::vector<std::string> components{"mta",  "smtp",  "smtps",  "submission", "pop3",
                                                      "imap", "pop3s", "imaps", "milter",     "all"};
    bool known = false;
    for (const auto& c : components)
        known = known || c == text;
    if (accepted(text, static_cast<cmd::SelectedMailComponents*>(nullptr)) != known)
        fuzzFailure("option values", "an unknown mail component is accepted");

    checkFixedPoint(text, names::checkedDomain, "a checked domain holds a byte it must not");
    try {
        const std::string domain = names::checkedDomain(text);
        if (domain.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-.") != std::string::npos ||
            !names::isCheckedDomain(domain))
            fuzzFailure("option values", "a checked domain is not a host name");
    } catch (const std::exception&) {
    }
    checkFixedPoint(text, names::checkedMailname, "a checked mailname holds a byte it must not");
    checkFixedPoint(text, names::checkedAddress, "a checked address holds a byte it must not");
    for (const char c : names::printable(text))
        if (static_cast<unsigned char>(c) < ' ' || static_cast<unsigned char>(c) >= 0x7f)
            fuzzFailure("option values", "a printed name holds an unprintable byte");
    return 0;
}
