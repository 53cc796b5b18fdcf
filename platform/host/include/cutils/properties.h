#pragma once

#include <stdint.h>
#include <sys/cdefs.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

// Returns the length of the value written to `value` (at most PROPERTY_VALUE_MAX - 1 bytes
// plus a terminator); the default is used when the key is unset.
int property_get(const char* key, char* value, const char* default_value);
// 0 on success, -1 on a bad name, a value of PROPERTY_VALUE_MAX bytes or more (except for
// "ro." names), a second set of an "ro." name, or a store that cannot be written.
int property_set(const char* key, const char* value);
int8_t property_get_bool(const char* key, int8_t default_value);
int64_t property_get_int64(const char* key, int64_t default_value);
int32_t property_get_int32(const char* key, int32_t default_value);

#ifdef __cplusplus
}
#endif
