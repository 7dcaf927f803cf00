#pragma once

#include "app/ElidedLabel.h"
#include "core/Expectation.h"

#include <optional>
#include <string>
#include <vector>

/// Says in one line what will become of the entries that wait. Main thread.
class ExpectationLine : public ElidedLabel {
    Q_OBJECT
public:
    using ElidedLabel::ElidedLabel;

    /// Looks at the disk beside the main thread, and only if these are other entries than before.
    void setEntries(std::vector<std::string> entries);
    void setSigning(Signing signing);
    /// The disk may have changed: the next entries are looked at even if they are the same.
    void forget();

private:
    void showText();

    std::vector<std::string> entries_;
    std::optional<Expectation> expectation_; ///< none until the entries have been looked at
    Signing signing_;
    int look_ = 0; ///< only what the last one found counts
};
