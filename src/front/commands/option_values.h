// The option value types of the service and settings commands and the option library's hooks
// that parse them: kept apart from the commands so that they can be tried on their own.
#pragma once

#include <cstdint>
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

// A network prefix length option: a decimal number not above 128.
struct IPMask {
    std::uint16_t value = 0;
};
void validate(boost::any& out, const std::vector<std::string>& values, IPMask*, int);

// The POP3/IMAP account format option: "compound" or "both".
enum class ShortnameFormat { Compound = 0, Both = 1 };
void validate(boost::any& out, const std::vector<std::string>& values, ShortnameFormat*, int);

}  // namespace quelt::mail::postfix::mailrig_commands
