#include "app/VornNSStringAdditions.h"

#include "app/platform/SettingsStore.h"

std::string VornNSStringAdditions::getAppVersionString(const MainBundle& bundle,
                                                       SettingsStore& settings) {
    std::string text = appVersionText(bundle.infoDictionary);
    settings.setString("prefAppVersion", text);
    return text;
}
