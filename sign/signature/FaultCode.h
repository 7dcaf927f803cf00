#pragma once

#include <cstdint>
#include <string_view>

namespace sign {

/// What can be wrong with signed code: the numbers of Apple's CSCommon.h, so that our answers can
/// be compared with those of the platform.
enum class FaultCode : std::int32_t {
    NotSigned = -67062,
    SignatureFailed = -67061,
    NoResources = -67056,
    BadResource = -67054,
    RequirementFailed = -67050,
    BadObjectFormat = -67049,
    InfoPlistFailed = -67030,
    BadBundleFormat = -67028,
    ResourcesInvalid = -67023,
    BadNestedCode = -67021,
    RegularFile = -67015,
    UnsealedAppRoot = -67014,
    WeakResourceRules = -67013,
    BadMainExecutable = -67010,
    BadFrameworkVersion = -67009,
    UnsealedFrameworkRoot = -67008,
    WeakResourceEnvelope = -67007,
    InvalidSymlink = -67003,
    InvalidAssociatedFileData = -66999,
    InvalidTeamIdentifier = -66997,
};

/// The platform's message for it, without a full stop.
[[nodiscard]] std::string_view faultMessage(FaultCode code);

} // namespace sign
