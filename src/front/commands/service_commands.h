// The service commands: the five that take mail components, and the older single-purpose
// commands that remain as aliases of fixed actions.
#pragma once

#include <string>
#include <vector>

#include <boost/any.hpp>

namespace quelt::mail::postfix::mailrig_commands {

// The components named by --mail-component options, as bits; repeated options add up.
struct SelectedMailComponents {
    enum : unsigned {
        mta = 1,
        smtp = 2,
        smtps = 4,
        submission = 8,
        pop3 = 16,
        imap = 32,
        pop3s = 64,
        imaps = 128,
        milter = 256,
        all = 65535,
        courier = pop3 | imap | pop3s | imaps,  // all one service, courier-imap
        listeners = smtp | smtps | submission,  // master.cf entries
    };
    unsigned bits = 0;
};

// The option library's hook: adds the bits of each value; an unknown one throws
// invalid_option_value("unknown component <value>").
void validate(boost::any& value, const std::vector<std::string>& values, SelectedMailComponents*, int);

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
