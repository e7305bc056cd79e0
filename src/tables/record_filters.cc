// Element filters and the line splitting shared by the record filters.
#include "tables/record_filters.h"

#include <cctype>
#include <iostream>

namespace quelt::mail::postfix::database {

namespace {

bool endsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// True when `text` ends with `sep` followed by `tail`.
bool endsWithAfter(const std::string& text, char sep, const std::string& tail)
{
    return text.size() > tail.size() && endsWith(text, tail) &&
           text[text.size() - tail.size() - 1] == sep;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

bool ReplaceElementFilterRef::operator()(std::string& element) const
{
    if (element == from_) {
        element = to_;
    } else if (element.size() == from_.size() + 1 && element.back() == '/' &&
               element.compare(0, from_.size(), from_) == 0) {
        element = to_ + "/";
    }
    return true;
}

bool ReplaceDomainPart::operator()(std::string& element) const
{
    if (element == old_) {
        element = new_;
    } else if (endsWithAfter(element, '@', old_) ||
               (subdomains_ && endsWithAfter(element, '.', old_))) {
        element.replace(element.size() - old_.size(), old_.size(), new_);
    }
    return true;
}

bool ReplaceDomainPath::operator()(std::string& element) const
{
    if (element.compare(0, old_.size(), old_) == 0)
        element.replace(0, old_.size(), new_);
    return true;
}

bool NotInDomainFilter::operator()(std::string& element) const
{
    return !(element == domain_ || endsWithAfter(element, '@', domain_) ||
             (subdomains_ && endsWithAfter(element, '.', domain_)));
}

bool isListSep(char c)
{
    return c == ',' || std::isspace(static_cast<unsigned char>(c));
}

namespace detail {

bool splitRecordLine(const std::string& line, std::string& key, std::string& value)
{
    const std::string::size_type blank = line.find_first_of(" \t");
    if (blank == std::string::npos) {
        std::clog << "invalid key/value '" << line << "'" << std::endl;
        return false;
    }
    key.assign(line, 0, blank);
    std::string::size_type begin = blank;
    std::string::size_type end = line.size();
    while (begin < end && isBlank(line[begin]))
        ++begin;
    while (end > begin && isBlank(line[end - 1]))
        --end;
    value.assign(line, begin, end - begin);
    return true;
}

}  // namespace detail
}  // namespace quelt::mail::postfix::database
