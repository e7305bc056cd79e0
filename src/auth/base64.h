// Standard Base64 (RFC 4648 alphabet, "=" padding, no line breaks) for the stored password form.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

// Four characters per group of three bytes; a short final group is padded with "=" or "==".
std::string b64_encode(const void* bytes, std::size_t length);
inline std::string b64_encode(const std::string& bytes)
{
    return b64_encode(bytes.data(), bytes.size());
}

// The bytes of a well-formed text (length a multiple of four, at most two "=" at its end);
// nothing for any other text.
std::optional<std::string> b64_decode(const std::string& text);
