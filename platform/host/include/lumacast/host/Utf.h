#pragma once

#include <string>
#include <string_view>

namespace lumacast::host {

// The libutils conversions on std strings, as String16, String8 and Parcel use them.
// UTF-8 is refused (false, *out unspecified) only when a sequence runs past the end;
// everything else converts as libutils converts it. Unpaired UTF-16 surrogates are dropped.
bool utf8ToUtf16(std::string_view in, std::u16string* out);
void utf16ToUtf8(std::u16string_view in, std::string* out);

}  // namespace lumacast::host
