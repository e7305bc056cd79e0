// A rewritten lookup table, built beside the one it replaces and renamed over it in one step.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "runtime/file_stream.h"

namespace quelt::mail::postfix {

// The text file and the indexed file of a table's next version, named ".<name>.tmp.XXXXXX"
// beside the table, so that a reader or a crash sees the old table or the new one, never a
// part, and nothing ever lies at the table's own path. Make one only while holding the table's
// lock: creating it removes what killed rewrites of the same table left behind.
class StagedTable {
public:
    // Clears leftovers (and a text file at the table's own path, which an older rewrite may
    // have left) and creates the text file. Throws PostfixConfigurationError.
    explicit StagedTable(const std::string& table);
    // Removes the text file and an indexed file that was not put in place.
    ~StagedTable();
    StagedTable(const StagedTable&) = delete;
    StagedTable& operator=(const StagedTable&) = delete;

    std::ostream& text() { return *text_; }
    // Closes the text file; throws PostfixConfigurationError when it was not written whole.
    void closeText();
    // What postmap builds: the table's type and the text file's path.
    const std::string& name() const { return name_; }
    // Gives the new indexed file the owner and mode of the one it replaces, flushes it to disk
    // and renames it over it. Throws PostfixConfigurationError.
    void install();

private:
    std::string path_;
    std::string suffix_;
    std::string textPath_;
    std::unique_ptr<OutputFile> text_;
    std::string name_;
    std::string built_;
    bool installed_ = false;
};

}  // namespace quelt::mail::postfix
