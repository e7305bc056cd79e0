// Base64 on OpenSSL's block coder, which writes no line breaks.
#include "auth/base64.h"

#include <openssl/evp.h>

#include <vector>

std::string b64_encode(const void* bytes, std::size_t length)
{
    std::string out((length + 2) / 3 * 4, '\0');
    // The block coder writes a terminator after the text, hence one byte more.
    std::vector<unsigned char> buffer(out.size() + 1);
    const int written = EVP_EncodeBlock(buffer.data(), static_cast<const unsigned char*>(bytes),
                                        static_cast<int>(length));
    out.assign(reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(written));
    return out;
}

std::optional<std::string> b64_decode(const std::string& text)
{
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::size_t padding = 0;
    while (padding < text.size() && text[text.size() - 1 - padding] == '=')
        ++padding;
    // "=" may close the text only; anywhere else the coder would read it as data.
    const std::size_t firstPad = text.find('=');
    if (padding > 2 || (firstPad != std::string::npos && firstPad != text.size() - padding))
        return std::nullopt;
    // The block coder skips surrounding blanks; a well-formed text has none.
    if (text.find_first_of(" \t\r\n") != std::string::npos)
        return std::nullopt;
    if (text.empty())
        return std::string();
    std::vector<unsigned char> buffer(text.size() / 4 * 3 + 1);
    const int decoded = EVP_DecodeBlock(buffer.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                        static_cast<int>(text.size()));
    if (decoded < 0)
        return std::nullopt;
    return std::string(reinterpret_cast<const char*>(buffer.data()),
                       static_cast<std::size_t>(decoded) - padding);
}
