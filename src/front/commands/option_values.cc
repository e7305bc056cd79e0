// Parsing of the option value types.
#include "front/commands/option_values.h"

#include <map>

#include <boost/program_options.hpp>

#include "runtime/ascii_numeric.h"

namespace po = boost::program_options;

namespace quelt::mail::postfix::mailrig_commands {

namespace {

using Components = SelectedMailComponents;

constexpr std::uint16_t kMaxPrefix = 128;

const std::map<std::string, unsigned> kComponentBits = {
    {"mta", Components::mta},       {"smtp", Components::smtp},
    {"smtps", Components::smtps},   {"submission", Components::submission},
    {"pop3", Components::pop3},     {"imap", Components::imap},
    {"pop3s", Components::pop3s},   {"imaps", Components::imaps},
    {"milter", Components::milter}, {"all", Components::all},
};

}  // namespace

void validate(boost::any& value, const std::vector<std::string>& values, SelectedMailComponents*, int)
{
    Components selected;
    if (!value.empty())
        selected = boost::any_cast<Components>(value);
    for (const std::string& name : values) {
        const auto it = kComponentBits.find(name);
        if (it == kComponentBits.end())
            throw po::invalid_option_value("unknown component " + name);
        selected.bits |= it->second;
    }
    value = selected;
}

void validate(boost::any& out, const std::vector<std::string>& values, IPMask*, int)
{
    po::validators::check_first_occurrence(out);
    const std::string& text = po::validators::get_single_string(values);
    IPMask mask;
    if (!Util::ASCIIToNumeric(text, mask.value) || mask.value > kMaxPrefix)
        throw po::invalid_option_value(text);
    out = mask;
}

void validate(boost::any& out, const std::vector<std::string>& values, ShortnameFormat*, int)
{
    po::validators::check_first_occurrence(out);
    const std::string& text = po::validators::get_single_string(values);
    if (text == "compound")
        out = ShortnameFormat::Compound;
    else if (text == "both")
        out = ShortnameFormat::Both;
    else
        throw po::invalid_option_value(text);
}

}  // namespace quelt::mail::postfix::mailrig_commands
