#include "sign/programs/Facts.h"

#include "base/ByteReader.h"
#include "sign/Description.h"
#include "sign/SignatureCms.h"

#include <array>
#include <ctime>

namespace sign {
namespace {

using base::Json;

/// Seconds since 1970 as "2026-05-12T07:45:12Z"; null if it is not known.
Json timeJson(std::optional<std::int64_t> seconds) {
    if (!seconds)
        return {};
    const auto time = static_cast<std::time_t>(*seconds);
    std::tm parts{};
    std::array<char, 64> text{};
    if (::gmtime_r(&time, &parts) == nullptr ||
        std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return {};
    return text.data();
}

Json changeJson(const SealFault& fault) {
    return Json::Object{{"file", fault.file}, {"change", std::string(changeName(fault.change))}};
}

Json faultJson(const VerifyFault& fault) {
    Json::Object object = {{"code", std::int64_t(fault.code)},
                           {"message", std::string(faultMessage(fault.code))}};
    if (!fault.subcomponent.empty())
        object.emplace_back("subcomponent", fault.subcomponent);
    if (!fault.architecture.empty())
        object.emplace_back("architecture", fault.architecture);
    Json::Array changes;
    for (const SealFault& change : fault.changes)
        changes.push_back(changeJson(change));
    if (!changes.empty())
        object.emplace_back("changes", std::move(changes));
    return object;
}

} // namespace

base::Result<Json::Object> signatureFacts(const StaticCode& code) {
    const auto parts = code.signature(code.file().isMachO() ? code.file().nativeSlice() : 0);
    if (!parts)
        return parts.error();
    const auto requirements = requirementsOf(code);
    if (!requirements)
        return requirements.error();
    const auto entitlements = entitlementsOf(code);
    if (!entitlements)
        return entitlements.error();
    const DirectoryFacts& facts = parts->best().facts();
    const SignerFacts signer = parts->cms.empty() ? SignerFacts() : signerFactsOf(parts->cms);
    return Json::Object{
        {"identifier", facts.identifier},
        {"format", formatOf(code)},
        {"flags", flagNames(facts.flags)},
        {"cdhash", base::hex(parts->best().cdhash().bytes())},
        {"team", facts.team},
        {"adhoc", (facts.flags & flag::adhoc) != 0},
        {"authorities", Json::Array(signer.authorities.begin(), signer.authorities.end())},
        {"signed", timeJson(signer.signingTime)},
        {"timestamp", timeJson(signer.timestamp)},
        {"requirements", *requirements},
        {"entitlements", std::string(base::textOf(*entitlements))}};
}

Json::Object validityFacts(const VerifyReport& report) {
    Json::Array faults;
    for (const VerifyFault& fault : report.faults)
        faults.push_back(faultJson(fault));
    return {{"valid", report.faults.empty()},
            {"meetsRequirement", report.meetsRequirement},
            {"faults", std::move(faults)}};
}

} // namespace sign
