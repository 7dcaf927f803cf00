#pragma once

#include "core/MainBundle.h"

#include <string>

class SettingsStore;

namespace VornNSStringAdditions {

/// The one-line version text of the bundle; also stores it under "prefAppVersion". Main thread.
std::string getAppVersionString(const MainBundle& bundle, SettingsStore& settings);

} // namespace VornNSStringAdditions
