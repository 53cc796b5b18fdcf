#pragma once

#include <stdint.h>

#include <string>

namespace lumacast::ctl {

// Strict parsers for command-line values: the whole text must be used, nothing is
// clamped, and a refusal leaves the output untouched.

// "true", "false", "1" or "0".
bool parseBool(const std::string& text, bool* out);
// A 32-bit signed number: decimal, or hexadecimal with 0x, with an optional sign.
bool parseInt32(const std::string& text, int32_t* out);
// A non-negative whole number below 2^63.
bool parseCount(const std::string& text, uint64_t* out);
// Non-negative seconds, fractions allowed ("2", "0.5"), at most a year.
bool parseSeconds(const std::string& text, double* out);

}  // namespace lumacast::ctl
