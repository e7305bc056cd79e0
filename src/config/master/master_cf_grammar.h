// The grammar over a memory-mapped file (the text form is in master_cf_file.h).
#pragma once

#include <memory>
#include <string>

#include "config/master/master_cf_content.h"

namespace quelt::mail::postfix {

// `opened` false: the file could not be opened or mapped. Otherwise nullptr means the grammar
// did not match the whole file.
std::unique_ptr<MasterCfContent> parseMappedMasterCf(const std::string& path, bool& opened);

}  // namespace quelt::mail::postfix
