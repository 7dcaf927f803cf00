#pragma once

#include "core/Description.h"

#include <string>

/// On whose behalf the core works: whom its log lines name.
struct Receiver {
    std::string className;
    std::string description;
};

inline void describe(BoundedText& out, const Receiver& receiver) {
    out.append(receiver.description);
}
