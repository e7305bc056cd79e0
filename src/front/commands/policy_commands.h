// What happens to mail for a domain's unknown mailnames: a bounce with a phrase, a catch-all
// address, or rejection; and the options that give a new or renamed domain alias its own.
#pragma once

#include <string>

#include "front/options/program_options_helper.h"

namespace quelt::mail::postfix::mailrig_commands {

int setBounce(int argc, char* argv[]);
int setCatchAll(int argc, char* argv[]);
int setReject(int argc, char* argv[]);
int removeReject(int argc, char* argv[]);

// Declares the optional policy options: set-catchall, email, set-bounce, phrase, set-reject.
void formNotexistingMailOptions(ProgramOptionsHelper& options);

// Checks the catch-all address those options would write (only when they would write it), so
// that a refused address stops the command before any store is touched.
void checkNotexistingMailOptions(const ProgramOptionsHelper& options);

// Gives `target` (a checked ASCII name) the policy the parsed options ask for; the first of
// --set-bounce, --set-catchall, --set-reject wins. 1 after logging when none was given.
// --set-catchall without --email throws MissingMandatoryOption; table errors pass through.
int processNotexistingMailnamesOptions(const ProgramOptionsHelper& options, const std::string& target);

}  // namespace quelt::mail::postfix::mailrig_commands
