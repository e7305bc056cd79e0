// Batches of table changes: immediate or cached, incremental or replacing.
#include "tables/batch_database_helper.h"

#include <new>

#include "runtime/errors.h"

namespace quelt::mail::postfix {

namespace {

template <class Map>
typename Map::mapped_type& entryOf(Map& cache, const std::string& table)
{
    try {
        return cache[table];
    } catch (const std::bad_alloc&) {
        throw PostfixDatabaseError("unable to form record cache");
    }
}

}  // namespace

void BatchDatabaseHelper::addChange(const std::string& table, const std::string& key,
                                    const std::string& value)
{
    const Records one{Record(key, value)};
    addChanges(table, one.begin(), one.end());
}

void BatchDatabaseHelper::removeChanges(const std::string& table, Keys::const_iterator begin,
                                        Keys::const_iterator end)
{
    if (applyImmediately_) {
        DatabaseHelper::removeRecords(table, begin, end);
        return;
    }
    Keys& cached = removalsOf(table);
    cached.insert(cached.end(), begin, end);
}

void BatchDatabaseHelper::commit()
{
    for (const auto& [table, records] : additions_)
        apply(table, records.begin(), records.end());
    additions_.clear();
    for (const auto& [table, keys] : removals_)
        DatabaseHelper::removeRecords(table, keys.begin(), keys.end());
    removals_.clear();
}

BatchDatabaseHelper::Records& BatchDatabaseHelper::additionsOf(const std::string& table)
{
    return entryOf(additions_, table);
}

BatchDatabaseHelper::Keys& BatchDatabaseHelper::removalsOf(const std::string& table)
{
    return entryOf(removals_, table);
}

}  // namespace quelt::mail::postfix
