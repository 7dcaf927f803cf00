#pragma once

#include "core/Confirmation.h"

#include <iosfwd>
#include <string>

/// Asks on `out` whether to process `folder` and reads the answer from `in`. `doNotCodesign` is
/// shown as a box that the person can tick and untick, and keeps what was chosen. An empty line and
/// the end of input mean Stop.
[[nodiscard]] Confirmation::Answer ask(const std::string& folder, bool& doNotCodesign,
                                       std::istream& in, std::ostream& out);
