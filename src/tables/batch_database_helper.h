// Collects the table changes of one operation and applies them at once or at commit time.
#pragma once

#include <list>
#include <map>
#include <string>
#include <utility>

#include "tables/database_helper.h"

namespace quelt::mail::postfix {

// Immediate mode passes every change straight to DatabaseHelper; cached mode keeps additions
// and removals per table until commit(), which runs one postmap per table, additions of all
// tables (in table-name order) before removals. Incremental additions merge records into a
// table, replace-mode additions become its whole content. Not committed changes are dropped on
// destruction. Errors of DatabaseHelper pass through unchanged.
class BatchDatabaseHelper {
public:
    using Record = std::pair<std::string, std::string>;
    using Records = std::list<Record>;
    using Keys = std::list<std::string>;

    BatchDatabaseHelper(bool addIncrementally, bool applyImmediately)
        : addIncrementally_(addIncrementally), applyImmediately_(applyImmediately) {}

    void addChange(const std::string& table, const std::string& key, const std::string& value);

    template <class It>
    void addChanges(const std::string& table, It begin, It end)
    {
        if (applyImmediately_) {
            apply(table, begin, end);
            return;
        }
        Records& cached = additionsOf(table);
        for (; begin != end; ++begin)
            cached.emplace_back(begin->first, begin->second);
    }

    void removeChanges(const std::string& table, Keys::const_iterator begin, Keys::const_iterator end);

    // Applies and empties both caches. A failing table stops the commit: tables applied before
    // it stay applied, and the cache being worked on stays as it was.
    void commit();

private:
    template <class It>
    void apply(const std::string& table, It begin, It end)
    {
        if (addIncrementally_)
            DatabaseHelper::addRecords(table, begin, end);
        else
            DatabaseHelper::replaceRecords(table, begin, end);
    }

    Records& additionsOf(const std::string& table);
    Keys& removalsOf(const std::string& table);

    bool addIncrementally_;
    bool applyImmediately_;
    std::map<std::string, Records> additions_;
    std::map<std::string, Keys> removals_;
};

}  // namespace quelt::mail::postfix
