// What the table store refuses to hand postmap, and how it tells that postmap dropped input.
#pragma once

#include <string>

namespace quelt::mail::postfix {

// Why `key` (and `value`, when given) cannot travel as one "key value" line that postmap reads
// back as the same record: an empty key, a blank, line break or NUL byte in the key, a leading
// '#', a line break or NUL byte in the value. nullptr when the record is fine.
const char* recordFault(const std::string& key, const std::string* value);

// The message of a refused record or key: names the table, the key (escaped) and the fault.
std::string refusalText(const std::string& table, const std::string& key, const char* fault,
                        bool removal);

// `text` with backslash, quote and every byte outside printable ASCII written as C escapes.
std::string escapeBytes(const std::string& text);

// postmap's diagnostics say it skipped or ignored an input line: an unbalanced quote, a line
// that is not "key whitespace value", a line starting with white space, input that is not
// UTF-8, a duplicate key. postmap still exits 0 then, so these count as a failed run.
bool droppedInput(const std::string& diagnostics);

}  // namespace quelt::mail::postfix
