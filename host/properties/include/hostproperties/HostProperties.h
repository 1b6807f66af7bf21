/*
 * Write side of the host's system property store, for tests and tools.
 *
 * At load the store is seeded from the environment variable HOST_PROPERTIES, a list of
 * name=value entries separated by ';' (for example
 * HOST_PROPERTIES="log.tag.VANTORA_CAMERA=V;ro.board.platform=kona").
 */
#pragma once

#include <optional>
#include <string>

namespace host {

// Sets `name` to `value`; values longer than PROP_VALUE_MAX - 1 bytes are refused (false), as
// the property service refuses them.
bool setProperty(const std::string& name, const std::string& value);
void clearProperty(const std::string& name);
std::optional<std::string> getProperty(const std::string& name);
// Drops every property, then applies HOST_PROPERTIES again.
void resetProperties();

}  // namespace host
