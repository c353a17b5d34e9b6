// Settings that hold until the end of the scope, written as a settings file: in the registry where
// the system has one, else in a file that is taken for it.
#pragma once

#ifdef _WIN32
#include "windows/units/settings_in_registry.h"
#else
#include "settings_file_in_use.h"

namespace korvane::test {
using SettingsInUse = SettingsFileInUse;
}
#endif
