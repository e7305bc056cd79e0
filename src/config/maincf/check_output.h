// Classification of the diagnostics that Postfix's tools print on standard error.
#pragma once

#include <string>

namespace quelt::mail::postfix {

// True when `text` holds no error diagnostic: no line of the form "program: panic: ...",
// "program: fatal: ..." or "program: error: ...". Warnings and notices pass, as does empty
// text. With `strict`, "warning:" lines count as errors too.
bool checkOutput(const std::string& text, bool strict);

}  // namespace quelt::mail::postfix
