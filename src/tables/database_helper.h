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
// have ended. Records are handed to postmap as "key value\n" lines, unchanged: keys must not
// hold blanks and neither keys nor values newlines. Only the whole-table rewrites (replace,
// filter) lock, by the table's path, and keep a text file at that path for their duration.
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
        runAdd(table, [&begin, end](Chunk& chunk) { return formRecord(chunk, begin, end); });
    }

    // Makes the table hold exactly these records (`postmap -r` over a text file written at the
    // table's path under the path's lock; the file is deleted in every case). An empty range
    // empties the table. Throws PostfixConfigurationError.
    template <class It>
    static void replaceRecords(const std::string& table, It begin, It end)
    {
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
        runRemove(table, [&begin, end](Chunk& chunk) { return printKey(chunk, begin, end); });
    }

    // Rewrites the whole table through a record filter: `postmap -s` streams the dump through
    // the filter into a text file at the table's path, then `postmap` rebuilds the table from
    // it. Holds the path's lock throughout; the text file is deleted in every case; a failed
    // dump leaves the table as it was. Throws PostfixConfigurationError.
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
