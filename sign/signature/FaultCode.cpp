#include "sign/signature/FaultCode.h"

#include <algorithm>
#include <array>

namespace sign {

namespace {

struct Message {
    FaultCode code;
    std::string_view text;
};

constexpr std::array messages = {
    Message{FaultCode::NotSigned, "code object is not signed at all"},
    Message{FaultCode::SignatureFailed, "invalid signature (code or signature have been modified)"},
    Message{FaultCode::NoResources,
            "code has no resources but signature indicates they must be present"},
    Message{FaultCode::BadResource, "a sealed resource is missing or invalid"},
    Message{FaultCode::RequirementFailed, "code failed to satisfy specified code requirement(s)"},
    Message{FaultCode::BadObjectFormat, "object file format unrecognized, invalid, or unsuitable"},
    Message{FaultCode::InfoPlistFailed,
            "invalid Info.plist (plist or signature have been modified)"},
    Message{FaultCode::BadBundleFormat, "bundle format unrecognized, invalid, or unsuitable"},
    Message{FaultCode::ResourcesInvalid,
            "invalid resource directory (directory or signature have been modified)"},
    Message{FaultCode::BadNestedCode, "nested code is modified or invalid"},
    Message{FaultCode::RegularFile,
            "the main executable or Info.plist must be a regular file (no symlinks, etc.)"},
    Message{FaultCode::UnsealedAppRoot, "unsealed contents present in the bundle root"},
    Message{FaultCode::WeakResourceRules, "resource envelope is obsolete (custom omit rules)"},
    Message{FaultCode::BadMainExecutable, "main executable failed strict validation"},
    Message{FaultCode::BadFrameworkVersion,
            "embedded framework contains modified or invalid version"},
    Message{FaultCode::UnsealedFrameworkRoot,
            "unsealed contents present in the root directory of an embedded framework"},
    Message{FaultCode::WeakResourceEnvelope, "resource envelope is obsolete (version 1 signature)"},
    Message{FaultCode::InvalidSymlink, "invalid destination for symbolic link in bundle"},
    Message{FaultCode::InvalidAssociatedFileData,
            "resource fork, Finder information, or similar detritus not allowed"},
    Message{FaultCode::InvalidTeamIdentifier, "a Team Identifier is wrong or inappropriate"},
};

} // namespace

std::string_view faultMessage(FaultCode code) {
    const auto* found = std::find_if(messages.begin(), messages.end(),
                                     [&](const Message& message) { return message.code == code; });
    return found == messages.end() ? "unknown error" : found->text;
}

} // namespace sign
