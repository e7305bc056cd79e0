// The postmap runs behind the lookup-table store.
#include "tables/database_helper.h"

#include <sys/wait.h>

#include "config/maincf/check_output.h"
#include "config/maincf/postfix_tool.h"
#include "runtime/errors.h"
#include "services/process/mk_lock.h"
#include "tables/record_check.h"
#include "tables/staged_table.h"

namespace quelt::mail::postfix {

namespace {

const char kPostmap[] = "/usr/sbin/postmap";

// postmap exits 0 after skipping a line it could not read; that record is lost all the same.
void throwIfFailed(int status, const std::string& diagnostics)
{
    if (!succeeded(status) || droppedInput(diagnostics))
        throw PostfixConfigurationError(failureText(diagnostics));
}

// A removal that exits non-zero without a panic, fatal or error line (an absent key) is done.
void judgeRemoval(int status, const std::string& diagnostics)
{
    if (droppedInput(diagnostics))
        throw PostfixDatabaseError(diagnostics);
    if (succeeded(status))
        return;
    if (WIFEXITED(status) && checkOutput(diagnostics, false))
        return;
    throw PostfixDatabaseError(diagnostics);
}

// Every change of a table holds its lock while postmap runs: an incremental change landing
// between a rewrite's dump and its rename would be lost.
class TableLock {
public:
    explicit TableLock(const std::string& table) : lock_(tablePath(table), MKLock::ByKey, MKLock::Wait) {}

private:
    MKLock lock_;
};

}  // namespace

std::string tablePath(const std::string& table)
{
    const std::string::size_type colon = table.find(':');
    return colon == std::string::npos ? table : table.substr(colon + 1);
}

void DatabaseHelper::refuseUnreadable(const std::string& table, const std::string& key,
                                      const std::string* value)
{
    const char* fault = recordFault(key, value);
    if (!fault)
        return;
    if (value)
        throw PostfixConfigurationError(refusalText(table, key, fault, false));
    throw PostfixDatabaseError(refusalText(table, key, fault, true));
}

void DatabaseHelper::appendLine(Chunk& chunk, const std::string& key, const std::string* value)
{
    chunk.insert(chunk.end(), key.begin(), key.end());
    if (value) {
        chunk.push_back(' ');
        chunk.insert(chunk.end(), value->begin(), value->end());
    }
    chunk.push_back('\n');
}

void DatabaseHelper::addRecord(const std::string& table, const std::string& key,
                               const std::string& value)
{
    const std::pair<std::string, std::string> record(key, value);
    addRecords(table, &record, &record + 1);
}

void DatabaseHelper::runAdd(const std::string& table, const Producer& records)
{
    const TableLock lock(table);
    std::string diagnostics;
    const int status = runTool({kPostmap, "-r", "-i", table}, diagnostics, &records);
    throwIfFailed(status, diagnostics);
}

void DatabaseHelper::removeRecord(const std::string& table, const std::string& key)
{
    refuseUnreadable(table, key, nullptr);
    // "-d -" would make postmap read its keys from our own standard input.
    if (key == "-") {
        const std::vector<std::string> keys{key};
        removeRecords(table, keys.begin(), keys.end());
        return;
    }
    const TableLock lock(table);
    std::string diagnostics;
    const int status = runTool({kPostmap, "-d", key, table}, diagnostics);
    judgeRemoval(status, diagnostics);
}

void DatabaseHelper::runRemove(const std::string& table, const Producer& keys)
{
    const TableLock lock(table);
    std::string diagnostics;
    const int status = runTool({kPostmap, "-d", "-", table}, diagnostics, &keys);
    judgeRemoval(status, diagnostics);
}

void DatabaseHelper::runReplace(const std::string& table,
                                const std::function<void(std::ostream&)>& write)
{
    const TableLock lock(table);
    StagedTable staged(table);
    write(staged.text());
    staged.closeText();

    std::string diagnostics;
    throwIfFailed(runTool({kPostmap, "-r", staged.name()}, diagnostics), diagnostics);
    staged.install();
}

void DatabaseHelper::runFilter(
    const std::string& table,
    const std::function<std::unique_ptr<database::ChunkFilter>(std::ostream&)>& open)
{
    const TableLock lock(table);
    StagedTable staged(table);
    const std::unique_ptr<database::ChunkFilter> filter = open(staged.text());

    std::string diagnostics;
    const process::Receiver dump = [&filter](const std::vector<char>& chunk) {
        filter->filterChunk(chunk);
    };
    throwIfFailed(runTool({kPostmap, "-s", table}, diagnostics, nullptr, &dump), diagnostics);
    filter->finish();
    staged.closeText();
    // Not a byte changed: the table stays as it is, its file and its time untouched.
    if (!filter->changed())
        return;

    diagnostics.clear();
    throwIfFailed(runTool({kPostmap, staged.name()}, diagnostics), diagnostics);
    staged.install();
}

}  // namespace quelt::mail::postfix
