#include "base/Version.h"

const char* base::version() {
    return KELPMORAY_VERSION;
}
