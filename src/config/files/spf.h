// The SPF checker's parameter files under /etc/zvt-spf.
#pragma once

#include <optional>
#include <string>

// Writes each given value, as is and without a newline, over its file (spfbehavior, spfrules,
// spfguess, spfexp), in that order; values not given leave their files alone. 0, or -1 after
// printing why at the first failure (the files before it stay written).
int update_spf(const std::optional<std::string>& behavior, const std::optional<std::string>& rules,
               const std::optional<std::string>& guess, const std::optional<std::string>& exp);
