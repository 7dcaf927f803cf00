#include "app/ExpectationLine.h"

#include "app/toolkit/Queues.h"

#include <QPointer>

void ExpectationLine::setEntries(std::vector<std::string> entries) {
    if (!isOld_ && entries == entries_)
        return;
    isOld_ = false;
    entries_ = std::move(entries);
    expectation_.reset();
    const int look = ++look_;
    showText();
    if (entries_.empty())
        return;
    GlobalQueue::async([self = QPointer(this), look, looked = entries_] {
        Expectation found = expectationOf(looked);
        MainQueue::async([self, look, found = std::move(found)] {
            if (!self || self->look_ != look)
                return;
            self->expectation_ = found;
            self->showText();
        });
    });
}

void ExpectationLine::setSigning(Signing signing) {
    signing_ = std::move(signing);
    showText();
}

void ExpectationLine::forget() {
    isOld_ = true;
}

void ExpectationLine::showText() {
    if (entries_.empty())
        return setFullText(QString::fromStdString(textOf(signing_)));
    if (!expectation_)
        return; // the old text stays until the disk has been read
    std::string text = textOf(*expectation_, signing_);
    if (const std::string replaced = replacedText(*expectation_); !replaced.empty())
        text += " · " + replaced;
    setFullText(QString::fromStdString(text));
}
