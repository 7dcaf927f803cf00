#pragma once

#include "zip/encoder/Encoder.h"

#include <string>

/// Empty if both decoders, independent of each other and of the encoder, get the content back from
/// the encoder's stream and take all of it; else which one found what. The memory that the encoder
/// reads and writes has its exact size, so that a sanitizer sees what goes beyond.
[[nodiscard]] std::string faultOfRoundTrip(zip::Encoder& encoder, base::Bytes content, bool isLast);

/// What the encoder makes of the content.
[[nodiscard]] std::string encoded(zip::Encoder& encoder, const zip::PaddedContent& content,
                                  bool isLast = true);
[[nodiscard]] std::string encoded(zip::Encoder& encoder, base::Bytes content, bool isLast = true);
