#include "app/platform/FontPreload.h"

#ifdef KELPMORAY_FONTCONFIG
#include <thread>

#include <fontconfig/fontconfig.h>

void preloadFonts() {
    std::thread([] { FcInit(); }).detach();
}
#else
void preloadFonts() {}
#endif
