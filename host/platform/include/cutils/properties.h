#pragma once

// Stand-in for libcutils' access to system properties, which Debian's libcutils lacks, over
// libbase's in-process store. The first call loads the workstation's property file; see
// <lumo/Properties.h>.

#include <stddef.h>
#include <stdint.h>

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92  // terminator included

extern "C" {

// Copies at most 91 characters of the value, or of the default if the property is unset or empty,
// with a terminator; a null default stands for the empty string. Returns the length. `value` has
// room for PROPERTY_VALUE_MAX bytes.
int property_get(const char* key, char* value, const char* default_value);

// The default if the property is unset or no such value.
int8_t property_get_bool(const char* key, int8_t default_value);
int64_t property_get_int64(const char* key, int64_t default_value);
int32_t property_get_int32(const char* key, int32_t default_value);

// 0, or a negative number on failure.
int property_set(const char* key, const char* value);

}  // extern "C"
