// Carrying out a mailname's delivery instructions for one message, and the answer Postfix's
// pipe transport expects back: an exit status from <sysexits.h> and one line of text that
// starts with an enhanced status code.
#pragma once

#include <string>
#include <vector>

#include "delivery/instructions.h"

namespace quelt::mail::delivery {

struct Envelope {
    std::string sender;     // empty for a bounce
    std::string recipient;  // mailname@domain
    std::string mailname;
    std::string domain;
    std::string home;       // the mailname home, also the working directory
    std::string user;       // the mail user the programs run as
};

struct Outcome {
    int status;        // 0, EX_TEMPFAIL, or a status Postfix bounces on
    std::string text;  // empty on success, else "4.x.x ..." or "5.x.x ..."
};

// The instruction of a mailname that has no .qmail file: the mailbox, under its quota.
Instruction mailboxInstruction();

// Runs the program lines in order with the message on standard input, then forwards one copy to
// every "&" address with a single sendmail run, as qmail-local does. A program's exit status
// counts as qmail-local counts it: 0 success, 99 success that ends the file at that line,
// 64, 65, 70, 76, 77, 78, 100 and 112 a permanent failure, anything else (a signal included) a
// temporary one; the first failure ends the delivery.
Outcome deliver(const Envelope& envelope, const std::vector<Instruction>& instructions, const std::string& message);

Outcome temporaryFailure(const std::string& code, const std::string& why);
Outcome permanentFailure(int status, const std::string& code, const std::string& why);

}  // namespace quelt::mail::delivery
