#pragma once

// Bionic's property API, reached through <cutils/properties.h>; glibc has no such header.

#include <stdint.h>
#include <sys/cdefs.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct prop_info prop_info;

#define PROP_VALUE_MAX 92
#define PROP_NAME_MAX 32

int __system_property_set(const char* name, const char* value);
const prop_info* __system_property_find(const char* name);
void __system_property_read_callback(const prop_info* pi,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie);
int __system_property_foreach(void (*callback)(const prop_info* pi, void* cookie), void* cookie);
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
