// The lookup-table store: every change to a Postfix "type:path" table is a postmap run.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tables/data_stream_filter.h"

namespace quelt::mail::postfix {

// Stateless; every operation runs one or two /usr/sbin/postmap processes and returns when they
// have ended. Records are handed to postmap as "key value\n" lines, unchanged; a record that
// would not read back as itself (an empty key, a key holding a blank, a line break or a NUL
// byte, or beginning with '#'; a value holding a line break or a NUL byte) is refused before
// any postmap run, and a run in which postmap skipped an input line counts as failed.
// Every change holds the table's lock (MKLock keyed by its path) for the length of its runs,
// so that no change lands between a rewrite's dump and its rebuild. Rewrites build the new
// table beside the old one and rename it into place (StagedTable).
class DatabaseHelper {
public:
    using Chunk = std::vector<char>;
    // Fills an empty chunk with the next piece of standard input; false after the last piece.
    using Producer = std::function<bool(Chunk&)>;

    // Adds or replaces one record (`postmap -r -i`). Throws PostfixConfigurationError.
    static void addRecord(const std::string& table, const std::string& key, const std::string& value);

    // Adds or replaces the (key, value) records with one `postmap -r -i` run, a later record
    // winning over an earlier one; an empty range runs nothing. Throws PostfixConfigurationError
    // with postmap's diagnostics ("unknown error" when it printed none).
    template <class It>
    static void addRecords(const std::string& table, It begin, It end)
    {
        if (begin == end)
            return;
        for (It it = begin; it != end; ++it)
            refuseUnreadable(table, it->first, &it->second);
        runAdd(table, [&begin, end](Chunk& chunk) { return formRecord(chunk, begin, end); });
    }

    // Makes the table hold exactly these records: `postmap -r` builds them beside the table,
    // which is then replaced in one rename. An empty range empties the table. Throws
    // PostfixConfigurationError; a failure leaves the table as it was.
    template <class It>
    static void replaceRecords(const std::string& table, It begin, It end)
    {
        for (It it = begin; it != end; ++it)
            refuseUnreadable(table, it->first, &it->second);
        runReplace(table, [&begin, end](std::ostream& text) {
            for (; begin != end; ++begin)
                text << begin->first << ' ' << begin->second << '\n';
        });
    }

    // Removes one key (`postmap -d key`); an absent key is no error. Throws PostfixDatabaseError
    // when postmap was killed or reported panic, fatal or error.
    static void removeRecord(const std::string& table, const std::string& key);

    // Removes the keys with one `postmap -d -` run; an empty range runs nothing. Failures as
    // removeRecord.
    template <class It>
    static void removeRecords(const std::string& table, It begin, It end)
    {
        if (begin == end)
            return;
        for (It it = begin; it != end; ++it)
            refuseUnreadable(table, *it, nullptr);
        runRemove(table, [&begin, end](Chunk& chunk) { return printKey(chunk, begin, end); });
    }

    // Rewrites the whole table through a record filter: `postmap -s` streams the dump through
    // the filter into a text file beside the table, `postmap` builds the new table from it,
    // and a rename puts it in place. A pass that changes no record leaves the table untouched;
    // a failure leaves it as it was. Throws PostfixConfigurationError.
    template <class Filter>
    static void filterRecords(const std::string& table, const Filter& filter)
    {
        runFilter(table, [&filter](std::ostream& text) -> std::unique_ptr<database::ChunkFilter> {
            return std::make_unique<database::DataStreamFilter<Filter>>(filter, text);
        });
    }

    // Appends "key value\n" of *current to the chunk and advances; true while records remain.
    template <class It>
    static bool formRecord(Chunk& chunk, It& current, It end)
    {
        appendLine(chunk, current->first, &current->second);
        ++current;
        return current != end;
    }

private:
    template <class It>
    static bool printKey(Chunk& chunk, It& current, It end)
    {
        appendLine(chunk, *current, nullptr);
        ++current;
        return current != end;
    }

    // Throws PostfixConfigurationError (a record: `value` given) or PostfixDatabaseError (a key
    // to remove) naming the table and the key when postmap would not read the line back as it.
    static void refuseUnreadable(const std::string& table, const std::string& key,
                                 const std::string* value);
    static void appendLine(Chunk& chunk, const std::string& key, const std::string* value);
    static void runAdd(const std::string& table, const Producer& records);
    static void runRemove(const std::string& table, const Producer& keys);
    static void runReplace(const std::string& table, const std::function<void(std::ostream&)>& write);
    static void runFilter(const std::string& table,
                          const std::function<std::unique_ptr<database::ChunkFilter>(std::ostream&)>& open);
};

// The path of a "type:path" table name: what follows the first ':', or the whole name.
std::string tablePath(const std::string& table);

}  // namespace quelt::mail::postfix
