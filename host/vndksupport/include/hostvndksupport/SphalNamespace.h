/*
 * The host's sphal namespace, for tests and tools.
 *
 * With no directories set, the namespace is the process's normal library search path. With
 * directories set, a library name without '/' is looked up in those directories only, in order,
 * as the vendor's sphal namespace confines a device's lookups; a name with '/' is opened as it
 * is. The directories are read at load from HOST_SPHAL_LIBRARY_PATH (':'-separated).
 */
#pragma once

#include <string>
#include <vector>

namespace host {

void setSphalSearchPath(const std::vector<std::string>& directories);
std::vector<std::string> sphalSearchPath();

}  // namespace host
