// Record filters for whole-table rewrites: what happens to one key, one value element or one
// dumped "key value" line when a domain or a mailname changes its name or goes away.
#pragma once

#include <string>
#include <utility>

namespace quelt::mail::postfix::database {

// Element filters: applied to one string, which they may rewrite in place; the result says
// whether the string stays. All comparisons are exact byte comparisons.

// Renames one exact element: `from` becomes `to`, and `from` + "/" becomes `to` + "/".
// Holds references: both strings must outlive the filter. Always keeps the element.
class ReplaceElementFilterRef {
public:
    ReplaceElementFilterRef(const std::string& from, const std::string& to) : from_(from), to_(to) {}
    bool operator()(std::string& element) const;

private:
    const std::string& from_;
    const std::string& to_;
};

// Moves a name or an address from the old domain to the new one: the element equal to the old
// domain, an address "...@old", and (with subdomains) a name "....old". Always keeps it.
class ReplaceDomainPart {
public:
    ReplaceDomainPart(std::string oldDomain, std::string newDomain, bool subdomains)
        : old_(std::move(oldDomain)), new_(std::move(newDomain)), subdomains_(subdomains) {}
    bool operator()(std::string& element) const;

private:
    std::string old_;
    std::string new_;
    bool subdomains_;
};

// Rewrites a mailbox path that begins with the old domain; it tests the prefix only.
class ReplaceDomainPath {
public:
    ReplaceDomainPath(std::string oldDomain, std::string newDomain)
        : old_(std::move(oldDomain)), new_(std::move(newDomain)) {}
    bool operator()(std::string& element) const;

private:
    std::string old_;
    std::string new_;
};

// Drops the domain itself, addresses "...@domain" and (with subdomains) names "....domain".
class NotInDomainFilter {
public:
    NotInDomainFilter(std::string domain, bool subdomains)
        : domain_(std::move(domain)), subdomains_(subdomains) {}
    bool operator()(std::string& element) const;

private:
    std::string domain_;
    bool subdomains_;
};

// A separator of list values: a comma or white space.
bool isListSep(char c);

namespace detail {
// Splits `value` into its non-empty elements, lets `keep` decide on each, and joins the kept
// ones with ", " into `joined`. Returns whether any element was kept.
template <class F>
bool filterList(const std::string& value, F& keep, std::string& joined)
{
    bool any = false;
    std::string element;
    std::string::size_type at = 0;
    const std::string::size_type size = value.size();
    while (at < size) {
        while (at < size && isListSep(value[at]))
            ++at;
        if (at == size)
            break;
        std::string::size_type end = at;
        while (end < size && !isListSep(value[end]))
            ++end;
        element.assign(value, at, end - at);
        at = end;
        if (!keep(element))
            continue;
        if (any)
            joined += ", ";
        joined += element;
        any = true;
    }
    return any;
}

// Splits a dumped line into key and trimmed value; false (after a message on std::clog) when
// the line holds no blank at all.
bool splitRecordLine(const std::string& line, std::string& key, std::string& value);
}  // namespace detail

// Treats a value as a list of elements and applies F to each; kept elements are joined with
// ", ". When none stays, the value is left alone and the result is false.
template <class F>
class ValueListFilter {
public:
    explicit ValueListFilter(F filter) : filter_(std::move(filter)) {}
    bool operator()(std::string& value) const
    {
        std::string joined;
        joined.reserve(value.size() + 8);
        if (!detail::filterList(value, filter_, joined))
            return false;
        value.swap(joined);
        return true;
    }

private:
    F filter_;
};

// Applies KF to the key and VF to the value of one "key value" line. A line without a blank is
// reported as "invalid key/value '<line>'" on std::clog and dropped; an empty value is dropped
// silently; a kept line is rewritten as key, one space, value.
template <class KF, class VF>
class KeyValueFilter {
public:
    KeyValueFilter(KF keyFilter, VF valueFilter)
        : keyFilter_(std::move(keyFilter)), valueFilter_(std::move(valueFilter)) {}
    bool operator()(std::string& line) const
    {
        std::string key, value;
        if (!detail::splitRecordLine(line, key, value))
            return false;
        if (!keyFilter_(key) || value.empty() || !valueFilter_(value))
            return false;
        line.assign(key).append(1, ' ').append(value);
        return true;
    }

private:
    KF keyFilter_;
    VF valueFilter_;
};

// The same element filter on the key and on every element of the value.
template <class F>
class ElementsFilter : public KeyValueFilter<F, ValueListFilter<F>> {
public:
    explicit ElementsFilter(const F& filter)
        : KeyValueFilter<F, ValueListFilter<F>>(filter, ValueListFilter<F>(filter)) {}
};

}  // namespace quelt::mail::postfix::database
