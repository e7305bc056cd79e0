// The command boundary's checks of domain names, mailnames and addresses.
#include "model/names/name_checks.h"

#include <cstdio>
#include <stdexcept>

#include <boost/algorithm/string/case_conv.hpp>

#include "model/names/idn.h"
#include "model/names/mailname.h"

namespace quelt::names {

namespace {

constexpr std::string::size_type kMaxDomain = 253;
constexpr std::string::size_type kMaxLabel = 63;

bool isLdh(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

bool isLabel(const std::string& name, std::string::size_type begin, std::string::size_type end)
{
    const std::string::size_type length = end - begin;
    if (length < 1 || length > kMaxLabel)
        return false;
    if (name[begin] == '-' || name[end - 1] == '-')
        return false;
    for (std::string::size_type i = begin; i < end; ++i)
        if (!isLdh(name[i]))
            return false;
    return true;
}

std::string quoted(const char* what, const std::string& value)
{
    return std::string(what) + " '" + printable(value) + "'";
}

}  // namespace

bool isCheckedDomain(const std::string& ascii)
{
    if (ascii.empty() || ascii.size() > kMaxDomain)
        return false;
    std::string::size_type begin = 0;
    for (;;) {
        const std::string::size_type dot = ascii.find('.', begin);
        const std::string::size_type end = dot == std::string::npos ? ascii.size() : dot;
        if (!isLabel(ascii, begin, end))
            return false;
        if (dot == std::string::npos)
            return true;
        begin = dot + 1;
    }
}

std::string checkedDomain(const std::string& name)
{
    const std::string ascii = boost::algorithm::to_lower_copy(quelt::idn::toAscii(name));
    if (!isCheckedDomain(ascii))
        throw std::invalid_argument(quoted("invalid domain name", name));
    return ascii;
}

std::string checkedMailname(const std::string& name)
{
    if (!is_mailname_valid(name.c_str()))
        throw std::invalid_argument(name);
    return boost::algorithm::to_lower_copy(name);
}

std::string checkedAddress(const std::string& address)
{
    const std::string::size_type at = address.find('@');
    if (at == std::string::npos || address.find('@', at + 1) != std::string::npos)
        throw std::invalid_argument(quoted("invalid mail address", address));
    const std::string local = address.substr(0, at);
    if (!is_mailname_valid(local.c_str()))
        throw std::invalid_argument(quoted("invalid mail address", address));
    const std::string ascii = boost::algorithm::to_lower_copy(quelt::idn::toAscii(address.substr(at + 1)));
    if (!isCheckedDomain(ascii))
        throw std::invalid_argument(quoted("invalid mail address", address));
    return boost::algorithm::to_lower_copy(local) + "@" + ascii;
}

std::string printable(const std::string& value)
{
    std::string shown;
    shown.reserve(value.size());
    for (const char c : value) {
        const unsigned char byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && byte != '\\') {
            shown.push_back(c);
        } else {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            shown += escaped;
        }
    }
    return shown;
}

}  // namespace quelt::names
