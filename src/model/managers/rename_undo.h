// Undo steps of a multi-step rename, run in reverse order unless the rename completed.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace quelt::mail::postfix {

// Writes the critical-restore message for the table called `title` to quelt::uerr.
void reportCriticalRestore(const std::string& title);

// A failing undo step is reported with the critical-restore message for its table and the
// others still run; the exception that started the undoing is left to propagate.
class RenameUndo {
public:
    // `title` names the table of the steps pushed without one of their own.
    explicit RenameUndo(std::string title) : title_(std::move(title)) {}
    ~RenameUndo()
    {
        for (auto it = steps_.rbegin(); it != steps_.rend(); ++it) {
            try {
                it->second();
            } catch (...) {
                reportCriticalRestore(it->first);
            }
        }
    }
    RenameUndo(const RenameUndo&) = delete;
    RenameUndo& operator=(const RenameUndo&) = delete;

    void push(std::function<void()> undo) { steps_.emplace_back(title_, std::move(undo)); }
    void push(const std::string& title, std::function<void()> undo) { steps_.emplace_back(title, std::move(undo)); }
    // The rename completed: nothing is undone.
    void dismiss() { steps_.clear(); }

private:
    std::string title_;
    std::vector<std::pair<std::string, std::function<void()>>> steps_;
};

}  // namespace quelt::mail::postfix
