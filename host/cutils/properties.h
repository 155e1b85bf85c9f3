// Android system properties as the platform's libcutils exposes them.
#pragma once

#include <stdint.h>

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `key` (or `default_value` when unset) into `value`,
// which must hold PROPERTY_VALUE_MAX bytes. Returns the length copied.
int property_get(const char* key, char* value, const char* default_value);

// Parses the value of `key` as a decimal (or 0x hex) integer; returns
// `default_value` when unset, unparsable or out of range.
int32_t property_get_int32(const char* key, int32_t default_value);

// Sets `key`; returns 0 on success, -1 when key or value is too long.
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif
