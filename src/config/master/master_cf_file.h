// Reading and writing master.cf-format files: the grammar over the mapped file, and the
// replacement of a file through a temporary file renamed over it under the file's lock.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "config/master/master_cf_content.h"

namespace quelt::mail::postfix {

// Parses `size` bytes; nullptr when the grammar does not match them completely.
std::unique_ptr<MasterCfContent> parseMasterCf(const char* text, std::size_t size);

// Maps and parses `path`; `content` is replaced only when the whole file parsed. Throws
// PostfixConfigurationError "unable to open <path>" or "unable to parse <path>". An empty file
// is an empty content.
void loadMasterCf(const std::string& path, std::unique_ptr<MasterCfContent>& content);

// Replaces `path` with the content, mode 0644, under MKLock(path): a temporary file beside it
// renamed over it, so a failure leaves the old file and no temporary one. Throws FSError
// "chmod" / "rename", SystemError from the lock or mkstemp, std::ios_base::failure on a
// failed write.
void storeMasterCf(const std::string& path, const MasterCfContent& content);

}  // namespace quelt::mail::postfix
