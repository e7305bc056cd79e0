// Internationalized domain names to and from their ASCII (IDNA) form, with GNU libidn: the
// throwing quelt::idn functions and the plain functions of the procedural modules.
#pragma once

#include <exception>
#include <optional>
#include <string>

namespace quelt::idn {

// A libidn conversion failure; what() is idn_strerror(code).
class IdnaError : public std::exception {
public:
    explicit IdnaError(int code) : code_(code) {}
    const char* what() const noexcept override;
    int code() const noexcept { return code_; }

private:
    int code_;
};

// The ASCII form of a UTF-8 domain name. Throws IdnaError, std::bad_alloc.
std::string toAscii(const std::string& name);
// The UTF-8 form of an ASCII domain name. Throws IdnaError, std::bad_alloc.
std::string toUtf8(const std::string& name);
// An address with its domain part (after the first "@") in ASCII; no "@": unchanged.
std::string emailToAscii(const std::string& address);

}  // namespace quelt::idn

// The code of the last failed conversion of the plain functions below.
extern int idn_errno;

// The ASCII form, or nothing (idn_errno set). Out of memory ends the process.
std::optional<std::string> idn_toascii(const char* name);
// idn_toascii, ending the process with "idn_toascii_safe(<name>) failed: <why>" on failure.
std::string idn_toascii_safe(const char* name);
// "<local>@<ASCII domain>"; nothing without "@" or when the domain fails (idn_errno set).
std::optional<std::string> idn_email_toascii(const char* address);
// idn_email_toascii, ending the process with "idn_email_toascii_safe(...) failed: ..." on failure.
std::string idn_email_toascii_safe(const char* address);
// The text of a libidn result code ("Unknown error" for codes it does not have).
const char* idn_strerror(int code);
