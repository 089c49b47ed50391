#pragma once

#include <string>

/**
 * The host's property service behind `property_get*`, `property_set` and `property_list`.
 *
 * At its first use it reads the file named by the environment variable ZEBCAM_PROPERTIES, if any:
 * a `key=value` per line, blank lines and lines beginning with '#' aside. Blanks around key and
 * value do not count, and of two lines with one key the later one holds. A malformed line is
 * reported on standard error with file and line, and skipped; so is a file that cannot be read.
 *
 * Keys are made of letters, digits and ".-@:_" and may be of any length, values have at most 91
 * bytes. Unlike on a device, a property whose key begins with "ro." can be set again. Thread-safe.
 */
namespace zebcam::platform {

/// Environment variable that names the start file.
inline constexpr char PROPERTY_FILE_VARIABLE[] = "ZEBCAM_PROPERTIES";

/// Forgets a property; a missing one is fine.
void clearProperty(std::string const& key);

/// Adds the properties of a file. Throws std::runtime_error, naming file and line, for a file that
/// cannot be read or has a malformed line; then nothing is added.
void loadProperties(std::string const& path);

}  // namespace zebcam::platform
