// The server-wide mail settings commands and the feature report.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/any.hpp>

namespace quelt::mail::postfix::mailrig_commands {

// A network prefix length option: a decimal number not above 128.
struct IPMask {
    std::uint16_t value = 0;
};
void validate(boost::any& out, const std::vector<std::string>& values, IPMask*, int);

// The POP3/IMAP account format option: "compound" or "both".
enum class ShortnameFormat { Compound = 0, Both = 1 };
void validate(boost::any& out, const std::vector<std::string>& values, ShortnameFormat*, int);

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
