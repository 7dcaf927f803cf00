#pragma once

#include "base/Json.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// A package that was found and not begun is Left.
enum class PackageState { Running, Done, Failed, Interrupted, Left };

/// One script that ran over a package.
struct StepRecord {
    std::string script; ///< its file name
    double seconds = 0;
    bool failed = false;
    std::string lastLine{};
    std::string output{}; ///< the end of it, of a step that failed or has something to tell
};

/// What became of one package.
struct PackageRecord {
    struct Archive {
        std::string path;
        std::uint64_t size = 0;
        std::string sha256{}; ///< empty if it could not be read
    };

    std::string path;
    std::string entry; ///< the folder or package it was handed over in
    PackageState state = PackageState::Running;
    std::string signedAs{};  ///< empty if this run did not sign it
    std::string notSigned{}; ///< why this run did not sign it; empty if it did, or is about to
    std::optional<Archive> archive{};
    std::vector<StepRecord> steps{};
};

/// The form that a package has in the record of a run. Any thread.
[[nodiscard]] base::Json jsonOf(const PackageRecord& package);
[[nodiscard]] PackageRecord packageOf(const base::Json& json);
