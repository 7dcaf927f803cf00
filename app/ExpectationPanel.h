#pragma once

#include "core/Expectation.h"

#include <QWidget>

#include <cstddef>

class QLabel;
class QListWidget;

/// One entry of those that wait, as the question about it shows it.
struct AskedEntry {
    Expectation expectation;
    bool isPackage = false;
    std::size_t position = 1; ///< among `total`
    std::size_t total = 1;
    std::optional<std::string> identity; ///< the one picked
    bool neverSigns = false;             ///< whatever is picked
};

/// Says in words what will become of an entry, names its packages, and scrolls them if they are
/// many. Main thread.
class ExpectationPanel : public QWidget {
public:
    explicit ExpectationPanel(AskedEntry entry);

    void setDoNotCodesign(bool doNotCodesign);
    [[nodiscard]] QListWidget* packages() const { return packages_; }

private:
    void listPackages();

    AskedEntry entry_;
    QLabel* summary_;
    QListWidget* packages_;
};
