#pragma once

// Debian's <cutils/properties.h> wants this header of the platform, which Debian does not ship.

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
