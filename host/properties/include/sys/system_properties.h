/*
 * The host's stand-in for bionic's <sys/system_properties.h>: the read side of the system
 * property store. The store itself is process-local (see host/README.md).
 */
#pragma once

#include <sys/cdefs.h>

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Copies the value of property `name` into `value` (at least PROP_VALUE_MAX bytes) and returns its
 * length; an unset property yields "" and 0.
 */
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
