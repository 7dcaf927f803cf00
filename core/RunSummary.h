#pragma once

#include "base/Result.h"
#include "core/RunRecord.h"

/// What the window and the terminal tell a person of a run. Any thread.

/// What went wrong with a package, as two sentences without markup.
struct Failure {
    std::string error;
    std::string remedy;
};

/// What the first step that failed said; none if the package did not fail. A package that was
/// interrupted failed too.
[[nodiscard]] std::optional<Failure> failureOf(const PackageRecord& package);

/// Whether there is something to mend: it was not signed though it was to be, or not packed.
[[nodiscard]] bool hasFailed(const PackageRecord& package);

/// The paths of those that failed, and unless the run is still under way of those that are left,
/// each once.
[[nodiscard]] std::vector<std::string> packagesToRetry(const RecordedRun& run);

/// The same of the run whose record is `file`, at least one; or why there are none.
[[nodiscard]] base::Result<std::vector<std::string>> packagesToRetry(const std::string& file);

/// Why readRun() gives none for `file`.
[[nodiscard]] base::Error recordFault(const std::string& file);

/// "Done", "Working", "Not signed", "Not packed", "Interrupted" or "Not begun": more than a colour.
[[nodiscard]] std::string stateWord(const PackageRecord& package);

/// "Signed as Jane Doe (AB12CD34EF)", or why it is not signed.
[[nodiscard]] std::string signatureText(const PackageRecord& package);

/// "12.3 MB" of 1000 by 1000 bytes, as file browsers count.
[[nodiscard]] std::string sizeText(std::uint64_t bytes);
/// "0:07", "12:34", "1:02:03".
[[nodiscard]] std::string timeText(double seconds);
[[nodiscard]] double secondsOf(const PackageRecord& package);

/// All that is known of a package, in lines: what is copied and read out.
[[nodiscard]] std::string messageOf(const PackageRecord& package);

struct RunTally {
    std::size_t packages = 0;
    std::size_t packed = 0;
    std::size_t notPacked = 0;
    std::size_t notSigned = 0; ///< though they were to be
};
[[nodiscard]] RunTally tallyOf(const std::vector<PackageRecord>& packages);

/// "4 packages: 2 done, 1 failed, 1 left."; while the run is under way "…, 1 at work, 1 to come."
[[nodiscard]] std::string summaryOf(const std::vector<PackageRecord>& packages,
                                    bool underWay = false);
