#pragma once

#include "app/toolkit/ElidedLabel.h"
#include "core/Expectation.h"

#include <optional>
#include <string>
#include <vector>

/// Says in one line what will become of the entries that wait. Main thread.
class ExpectationLine : public ElidedLabel {
    Q_OBJECT
public:
    using ElidedLabel::ElidedLabel;

    /// Reads the disk on another thread, and only if the entries are not the same as before.
    void setEntries(std::vector<std::string> entries);
    void setSigning(Signing signing);
    /// The disk may have changed: the next entries are looked at even if they are the same.
    void forget();

private:
    void showText();

    std::vector<std::string> entries_;
    std::optional<Expectation> expectation_; ///< none until the entries have been looked at
    Signing signing_;
    bool isOld_ = false; ///< what was found on the disk
    int look_ = 0;       ///< number of the last look; what earlier ones find is dropped
};
