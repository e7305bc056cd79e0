// The server-wide mail settings commands and the feature report.
#pragma once

#include "front/commands/option_values.h"

namespace quelt::mail::postfix::mailrig_commands {


int setMailParams(int argc, char* argv[]);
int setMaxLetterSize(int argc, char* argv[]);
int getMaxLetterSize(int argc, char* argv[]);
int getMailboxLimit(int argc, char* argv[]);
int addWhiteList(int argc, char* argv[]);
int removeWhiteList(int argc, char* argv[]);
int addBadMailFrom(int argc, char* argv[]);
int removeBadMailFrom(int argc, char* argv[]);
int setMapsProtection(int argc, char* argv[]);
int setAccountsFormat(int argc, char* argv[]);
int updateSPF(int argc, char* argv[]);
int printFeatures(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands
