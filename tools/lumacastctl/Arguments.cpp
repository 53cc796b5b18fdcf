#include "tools/lumacastctl/Arguments.h"

#include <ctype.h>
#include <errno.h>
#include <math.h>
#include <stdlib.h>

namespace lumacast::ctl {

bool parseBool(const std::string& text, bool* out) {
    if (text == "true" || text == "1") {
        *out = true;
        return true;
    }
    if (text == "false" || text == "0") {
        *out = false;
        return true;
    }
    return false;
}

bool parseInt32(const std::string& text, int32_t* out) {
    // strtoll would also take leading blanks; a value with blanks is a typo here.
    if (text.empty() || isspace(static_cast<unsigned char>(text[0]))) return false;
    const char* start = text.c_str();
    const char* digits = start + ((text[0] == '-' || text[0] == '+') ? 1 : 0);
    const bool hex = digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
    char* end = nullptr;
    errno = 0;
    // Base 10 unless 0x: a leading zero is not an octal prefix on this command line.
    const long long v = strtoll(start, &end, hex ? 16 : 10);
    if (errno != 0 || end == start || *end != '\0' || (hex && digits[2] == '\0')) return false;
    if (v < INT32_MIN || v > INT32_MAX) return false;
    *out = static_cast<int32_t>(v);
    return true;
}

bool parseCount(const std::string& text, uint64_t* out) {
    if (text.empty() || text[0] < '0' || text[0] > '9') return false;
    char* end = nullptr;
    errno = 0;
    const unsigned long long v = strtoull(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v > static_cast<unsigned long long>(INT64_MAX)) return false;
    *out = v;
    return true;
}

bool parseSeconds(const std::string& text, double* out) {
    if (text.empty() || !((text[0] >= '0' && text[0] <= '9') || text[0] == '.')) return false;
    char* end = nullptr;
    errno = 0;
    const double v = strtod(text.c_str(), &end);
    if (errno != 0 || *end != '\0' || !isfinite(v) || v < 0 || v > 365.0 * 24 * 3600) {
        return false;
    }
    *out = v;
    return true;
}

}  // namespace lumacast::ctl
