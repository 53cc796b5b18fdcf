#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

// The libutils conversion helpers. Lengths are in code units; -1 means invalid input.
ssize_t utf8_to_utf16_length(const uint8_t* src, size_t srcLen, bool overreadIsFatal = false);
char16_t* utf8_to_utf16_no_null_terminator(const uint8_t* src, size_t srcLen, char16_t* dst,
                                           size_t dstLen);
char16_t* utf8_to_utf16(const uint8_t* src, size_t srcLen, char16_t* dst, size_t dstLen);
ssize_t utf16_to_utf8_length(const char16_t* src, size_t src_len);
void utf16_to_utf8(const char16_t* src, size_t src_len, char* dst, size_t dst_len);
size_t strlen16(const char16_t*);
