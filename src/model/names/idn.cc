// Internationalized domain names to and from their ASCII (IDNA) form, with GNU libidn.
#include "model/names/idn.h"

#include <idn-free.h>
#include <idna.h>

#include <cstring>
#include <memory>
#include <new>

#include "runtime/log.h"

int idn_errno = 0;

namespace {

struct IdnFree {
    void operator()(char* p) const { idn_free(p); }
};
using IdnString = std::unique_ptr<char, IdnFree>;

using Converter = int (*)(const char*, char**, int);

// The converted text, or the libidn result code.
int convert(Converter converter, const char* input, std::string& output)
{
    char* raw = nullptr;
    const int code = converter(input, &raw, 0);
    IdnString owned(raw);
    if (code != IDNA_SUCCESS)
        return code;
    if (!owned)
        return IDNA_MALLOC_ERROR;
    output = owned.get();
    return IDNA_SUCCESS;
}

std::string throwing(Converter converter, const std::string& input)
{
    char* raw = nullptr;
    const int code = converter(input.c_str(), &raw, 0);
    IdnString owned(raw);
    if (code != IDNA_SUCCESS)
        throw quelt::idn::IdnaError(code);
    if (!owned)
        throw std::bad_alloc();
    return owned.get();
}

}  // namespace

namespace quelt::idn {

const char* IdnaError::what() const noexcept
{
    return idn_strerror(code_);
}

std::string toAscii(const std::string& name)
{
    return throwing(&idna_to_ascii_8z, name);
}

std::string toUtf8(const std::string& name)
{
    return throwing(&idna_to_unicode_8z8z, name);
}

std::string emailToAscii(const std::string& address)
{
    const std::size_t at = address.find('@');
    if (at == std::string::npos)
        return address;
    return address.substr(0, at + 1) + toAscii(address.substr(at + 1));
}

}  // namespace quelt::idn

std::optional<std::string> idn_toascii(const char* name)
{
    std::string ascii;
    const int code = convert(&idna_to_ascii_8z, name, ascii);
    if (code == IDNA_MALLOC_ERROR)
        messlog2(1, 1, "Allocation failed");
    if (code != IDNA_SUCCESS) {
        idn_errno = code;
        return std::nullopt;
    }
    return ascii;
}

std::string idn_toascii_safe(const char* name)
{
    std::optional<std::string> ascii = idn_toascii(name);
    if (!ascii)
        messlog2(1, 1, "%s(%s) failed: %s", "idn_toascii_safe", name, idn_strerror(idn_errno));
    return *ascii;
}

std::optional<std::string> idn_email_toascii(const char* address)
{
    const char* at = std::strchr(address, '@');
    if (!at)
        return std::nullopt;
    std::optional<std::string> domain = idn_toascii(at + 1);
    if (!domain)
        return std::nullopt;
    return std::string(address, static_cast<std::size_t>(at - address)) + "@" + *domain;
}

std::string idn_email_toascii_safe(const char* address)
{
    std::optional<std::string> ascii = idn_email_toascii(address);
    if (!ascii)
        messlog2(1, 1, "%s(%s) failed: %s", "idn_email_toascii_safe", address, idn_strerror(idn_errno));
    return *ascii;
}

const char* idn_strerror(int code)
{
    switch (code) {
    case 0: return "Success";
    case 1: return "Stringprep error";
    case 2: return "Punycode error";
    case 3: return "Contains non-LDH characters";
    case 4: return "Contains minus";
    case 5: return "Invalid length";
    case 6: return "ACE prefix not found";
    case 7: return "Verify error";
    case 8: return "ACE prefix found";
    case 9: return "Iconv error";
    case 201: return "Cannot allocate buffer";
    default: return "Unknown error";
    }
}
