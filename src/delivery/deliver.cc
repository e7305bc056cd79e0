// Carrying out delivery instructions: programs through /bin/sh, forwards through sendmail.
#include "delivery/deliver.h"

#include <sysexits.h>

#include <algorithm>
#include <cctype>

#include "runtime/launch.h"

namespace quelt::mail::delivery {

namespace {

constexpr const char* kSendmail = "/usr/sbin/sendmail";
constexpr const char* kShell = "/bin/sh";
constexpr std::size_t kMaxReportedOutput = 400;

// A program's own words, on one line and short enough for a bounce.
std::string reportedOutput(std::string out)
{
    for (char& c : out)
        if (std::iscntrl(static_cast<unsigned char>(c)))
            c = ' ';
    const auto first = out.find_first_not_of(' ');
    if (first == std::string::npos)
        return "";
    out = out.substr(first, out.find_last_not_of(' ') - first + 1);
    if (out.size() > kMaxReportedOutput)
        out = out.substr(0, kMaxReportedOutput) + "...";
    return ": " + out;
}

EnvMap programEnvironment(const Envelope& envelope)
{
    return EnvMap{
        {"SENDER", envelope.sender},
        {"RECIPIENT", envelope.recipient},
        {"LOCAL", envelope.mailname},
        {"HOST", envelope.domain},
        {"HOME", envelope.home},
        {"USER", envelope.user},
        {"DTLINE", "Delivered-To: " + envelope.recipient + "\n"},
        {"RPLINE", "Return-Path: <" + envelope.sender + ">\n"},
        {"PATH", "/usr/local/bin:/usr/bin:/bin"},
    };
}

bool isPermanentStatus(int status)
{
    static const int permanent[] = {64, 65, 70, 76, 77, 78, 100, 112};
    return std::find(std::begin(permanent), std::end(permanent), status) != std::end(permanent);
}

}  // namespace

Instruction mailboxInstruction()
{
    return {InstructionKind::Program, "/usr/bin/deliverquota ./Maildir"};
}

Outcome temporaryFailure(const std::string& code, const std::string& why)
{
    return {EX_TEMPFAIL, code + " " + why};
}

Outcome permanentFailure(int status, const std::string& code, const std::string& why)
{
    return {status, code + " " + why};
}

Outcome deliver(const Envelope& envelope, const std::vector<Instruction>& instructions, const std::string& message)
{
    const EnvMap env = programEnvironment(envelope);
    std::vector<std::string> forwards;
    for (const Instruction& instruction : instructions) {
        if (instruction.kind == InstructionKind::Forward) {
            forwards.push_back(instruction.text);
            continue;
        }
        std::string out;
        std::string err;
        const int status =
            forkExecvGetInOutErrSuidEnv(message, out, err, kShell, {"sh", "-c", instruction.text}, "", env);
        if (status == 0)
            continue;
        // Success that ends the file here; the copies of the lines before still go out.
        if (status == 99)
            break;
        const std::string said = reportedOutput(err + out);
        if (status == EX_NOPERM && instruction.text == mailboxInstruction().text)
            return permanentFailure(EX_NOPERM, "5.2.2", "mailbox of " + envelope.recipient + " is over quota" + said);
        if (isPermanentStatus(status))
            return permanentFailure(EX_UNAVAILABLE, "5.3.0",
                                    "\"" + instruction.text + "\" failed with status " + std::to_string(status) + said);
        return temporaryFailure("4.3.0", "\"" + instruction.text + "\" " +
                                             (status < 0 ? std::string("was killed or lost")
                                                         : "failed with status " + std::to_string(status)) +
                                             said);
    }
    if (forwards.empty())
        return {0, ""};
    // One copy for all addresses, from the original sender, as qmail-local forwards.
    ArgList args{"sendmail", "-i", "-f", envelope.sender.empty() ? "<>" : envelope.sender, "--"};
    args.insert(args.end(), forwards.begin(), forwards.end());
    std::string out;
    std::string err;
    const int status = forkExecvGetInOutErrSuidEnv(message, out, err, kSendmail, args, "", {});
    if (status != 0)
        return temporaryFailure("4.3.0", "forwarding through sendmail failed with status " + std::to_string(status) +
                                             reportedOutput(err + out));
    return {0, ""};
}

}  // namespace quelt::mail::delivery
