// libFuzzer target of the record filters a whole-table rewrite streams a dump through. The
// input is "old\nnew\ndump": the dump goes in chunks of the input's own choosing through the
// filters the commands use: a domain alias rename, a domain removal and a mailname rename.
// Every written record is one "key value" line, the result does not depend on where the dump
// is cut, a removal leaves nothing of the domain, and a second pass changes nothing.
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "tables/data_stream_filter.h"
#include "tables/record_filters.h"

namespace db = quelt::mail::postfix::database;

namespace {

std::string cut(std::string& text)
{
    const std::string::size_type eol = text.find('\n');
    std::string head = text.substr(0, eol);
    text.erase(0, eol == std::string::npos ? text.size() : eol + 1);
    return head;
}

template <class Filter>
std::string stream(const Filter& filter, const std::string& dump, std::size_t chunk, bool& changed)
{
    std::ostringstream out;
    db::DataStreamFilter<Filter> stream(filter, out);
    for (std::size_t at = 0; at < dump.size(); at += chunk) {
        const std::size_t n = std::min(chunk, dump.size() - at);
        stream.filterChunk(std::vector<char>(dump.begin() + at, dump.begin() + at + n));
    }
    stream.finish();
    changed = stream.changed();
    return out.str();
}

// Every line a key, one space, a value without line breaks or surrounding blanks.
void checkLines(const std::string& written)
{
    std::istringstream in(written);
    std::string line;
    while (std::getline(in, line)) {
        const std::string::size_type space = line.find(' ');
        if (space == std::string::npos || space == 0 || space + 1 == line.size() ||
            line.back() == ' ' || line.back() == '\t' || line.find('\r') != std::string::npos)
            fuzzFailure("record filters", "a written record is not one key value line");
    }
    if (!written.empty() && written.back() != '\n')
        fuzzFailure("record filters", "a written record lacks its line feed");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string rest(reinterpret_cast<const char*>(data), size);
    if (rest.empty())
        return 0;
    const std::size_t chunk = 1 + static_cast<unsigned char>(rest[0]) % 17;
    rest.erase(0, 1);
    const std::string from = cut(rest);
    const std::string to = cut(rest);
    if (from.empty() || to.empty() || from.find_first_of(" \t,\r") != std::string::npos ||
        to.find_first_of(" \t,\r") != std::string::npos)
        return 0;
    // A dump line is a key, blanks and a value; it holds no carriage return.
    std::string dump;
    std::istringstream lines(rest);
    for (std::string line; std::getline(lines, line);)
        if (!line.empty() && line[0] != ' ' && line[0] != '\t' &&
            line.find_first_of(" \t") != std::string::npos && line.find('\r') == std::string::npos)
            dump += line + '\n';

    bool changed = false;
    const db::ElementsFilter<db::NotInDomainFilter> removal(db::NotInDomainFilter(from, false));
    const std::string removed = stream(removal, dump, chunk, changed);
    checkLines(removed);
    if (stream(removal, dump, dump.size() + 1, changed) != removed)
        fuzzFailure("record filters", "the result depends on where the dump is cut");
    std::istringstream check(removed);
    for (std::string line; std::getline(check, line);) {
        const std::string key = line.substr(0, line.find(' '));
        if (key == from || (key.size() > from.size() && key.compare(key.size() - from.size(), from.size(), from) == 0 &&
                            key[key.size() - from.size() - 1] == '@'))
            fuzzFailure("record filters", "a record of the removed domain stays");
    }
    stream(removal, removed, chunk, changed);
    if (changed)
        fuzzFailure("record filters", "a second removal changes the table");

    const db::ElementsFilter<db::ReplaceDomainPart> rename(db::ReplaceDomainPart(from, to, false));
    const std::string renamed = stream(rename, dump, chunk, changed);
    checkLines(renamed);
    const db::KeyValueFilter<db::ReplaceElementFilterRef, db::ReplaceElementFilterRef> mailname(
        db::ReplaceElementFilterRef(from, to), db::ReplaceElementFilterRef(from, to));
    checkLines(stream(mailname, dump, chunk, changed));
    return 0;
}
