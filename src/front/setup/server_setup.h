// Makes a stock Postfix server ready for mailrig: the stores mailrig changes but never creates
// (tables, databases, mail root) and the main.cf settings that make Postfix read them.
#pragma once

#include <iosfwd>
#include <string>

namespace quelt::mail::postfix::setup {

enum class MissingUser { Fail, Create };
enum class PasswordDb { KeepExisting, Recreate };

struct SetupOptions {
    MissingUser missingUser = MissingUser::Fail;
    PasswordDb passwordDb = PasswordDb::KeepExisting;
};

// Says each change on `out` as it is made. Returns the number of changes (0: the server was
// ready). Throws std::runtime_error for a missing mail user (with the way to create it) and
// lets the stores' own exceptions through.
int prepareServer(const SetupOptions& options, std::ostream& out);

// The main.cf lines mailrig needs, for showing them to an admin: "name = value".
std::string requiredMainCfSummary();

}  // namespace quelt::mail::postfix::setup
