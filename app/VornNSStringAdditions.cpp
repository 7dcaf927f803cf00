#include "app/VornNSStringAdditions.h"

#include "app/Names.h"
#include "app/toolkit/SettingsStore.h"

std::string VornNSStringAdditions::getAppVersionString(const MainBundle& bundle,
                                                       SettingsStore& settings) {
    std::string text = appVersionText(bundle.infoDictionary);
    settings.setString(Names::version, text);
    return text;
}
