// The reading of a system property; Debian's header compiles on devices only.
#pragma once

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

extern "C" {
int property_get(const char* key, char* value, const char* default_value);
}
