#pragma once

#include <string>
#include <string_view>

namespace lumacast::host {

// Strict conversions: overlong forms, surrogates encoded in UTF-8, code points above
// U+10FFFF, truncated sequences and unpaired UTF-16 surrogates are all refused (false),
// leaving *out unspecified.
bool utf8ToUtf16(std::string_view in, std::u16string* out);
bool utf16ToUtf8(std::u16string_view in, std::string* out);

}  // namespace lumacast::host
