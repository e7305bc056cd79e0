// The service commands: the five that take mail components, and the older single-purpose
// commands that remain as aliases of fixed actions.
#pragma once

#include "front/commands/option_values.h"

namespace quelt::mail::postfix::mailrig_commands {


int startService(int argc, char* argv[]);
int stopService(int argc, char* argv[]);
int restartService(int argc, char* argv[]);
int reloadService(int argc, char* argv[]);
int statusService(int argc, char* argv[]);

// Legacy commands: no options, their arguments are ignored.
int startSMTPD(int argc, char* argv[]);
int stopSMTPD(int argc, char* argv[]);
int restartSMTPD(int argc, char* argv[]);
int statusMTA(int argc, char* argv[]);
int startMTA(int argc, char* argv[]);
int stopMTA(int argc, char* argv[]);
int startIMAP(int argc, char* argv[]);
int stopIMAP(int argc, char* argv[]);
int restartIMAP(int argc, char* argv[]);
int statusIMAP(int argc, char* argv[]);
int startMilter(int argc, char* argv[]);
int stopMilter(int argc, char* argv[]);
int restartMilter(int argc, char* argv[]);
int statusMilter(int argc, char* argv[]);
int enableSubmission(int argc, char* argv[]);
int disableSubmission(int argc, char* argv[]);

}  // namespace quelt::mail::postfix::mailrig_commands
