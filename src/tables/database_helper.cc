// The postmap runs behind the lookup-table store.
#include "tables/database_helper.h"

#include <sys/wait.h>

#include "config/maincf/check_output.h"
#include "config/maincf/postfix_tool.h"
#include "runtime/errors.h"
#include "services/process/mk_lock.h"
#include "services/process/tmp_file.h"

namespace quelt::mail::postfix {

namespace {

const char kPostmap[] = "/usr/sbin/postmap";

void throwIfFailed(int status, const std::string& diagnostics)
{
    if (!succeeded(status))
        throw PostfixConfigurationError(failureText(diagnostics));
}

// A removal that exits non-zero without a panic, fatal or error line (an absent key) is done.
void judgeRemoval(int status, const std::string& diagnostics)
{
    if (succeeded(status))
        return;
    if (WIFEXITED(status) && checkOutput(diagnostics, false))
        return;
    throw PostfixDatabaseError(diagnostics);
}

}  // namespace

std::string tablePath(const std::string& table)
{
    const std::string::size_type colon = table.find(':');
    return colon == std::string::npos ? table : table.substr(colon + 1);
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
    std::string diagnostics;
    const int status = runTool({kPostmap, "-r", "-i", table}, diagnostics, &records);
    throwIfFailed(status, diagnostics);
}

void DatabaseHelper::removeRecord(const std::string& table, const std::string& key)
{
    std::string diagnostics;
    const int status = runTool({kPostmap, "-d", key, table}, diagnostics);
    judgeRemoval(status, diagnostics);
}

void DatabaseHelper::runRemove(const std::string& table, const Producer& keys)
{
    std::string diagnostics;
    const int status = runTool({kPostmap, "-d", "-", table}, diagnostics, &keys);
    judgeRemoval(status, diagnostics);
}

void DatabaseHelper::runReplace(const std::string& table,
                                const std::function<void(std::ostream&)>& write)
{
    const std::string path = tablePath(table);
    MKLock lock(path, MKLock::ByKey, MKLock::Wait);
    // Declared after the lock: the text file goes before the lock is released.
    AutocleanOFStream text(path, std::ios_base::out | std::ios_base::trunc);
    // A file that failed to open stays failed and unwritten; the rebuild then decides.
    if (text)
        write(text);
    text.close();

    std::string diagnostics;
    throwIfFailed(runTool({kPostmap, "-r", table}, diagnostics), diagnostics);
}

void DatabaseHelper::runFilter(
    const std::string& table,
    const std::function<std::unique_ptr<database::ChunkFilter>(std::ostream&)>& open)
{
    const std::string path = tablePath(table);
    MKLock lock(path, MKLock::ByKey, MKLock::Wait);
    AutocleanOFStream text(path, std::ios_base::out | std::ios_base::trunc);
    const std::unique_ptr<database::ChunkFilter> filter = open(text);

    std::string diagnostics;
    const process::Receiver dump = [&filter](const std::vector<char>& chunk) {
        filter->filterChunk(chunk);
    };
    throwIfFailed(runTool({kPostmap, "-s", table}, diagnostics, nullptr, &dump), diagnostics);
    filter->finish();
    text.close();

    diagnostics.clear();
    throwIfFailed(runTool({kPostmap, table}, diagnostics), diagnostics);
}

}  // namespace quelt::mail::postfix
