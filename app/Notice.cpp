#include "app/Notice.h"

#include "app/toolkit/ShownText.h"

#include <QAccessible>
#include <QHelpEvent>
#include <QToolTip>

#include <algorithm>

Notice::Notice(QWidget* parent) : QLabel(parent) {
    end_.setObjectName("noticeEnd");
    end_.setSingleShot(true);
    connect(&end_, &QTimer::timeout, this, &Notice::turnPage);
}

void Notice::explain(const std::string& sentence, const std::string& path) {
    const QString text = shownLine(sentence);
    std::erase_if(sentences_,
                  [&](const Sentence& each) { return each.isRead && each.text == text; });
    if (std::ranges::find(sentences_, text, &Sentence::text) == sentences_.end())
        sentences_.insert(std::ranges::find(sentences_, true, &Sentence::isRead),
                          {.text = text, .path = path});
    showPage();
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

void Notice::keep(std::optional<std::string> path) {
    if (path == kept_)
        return;
    kept_ = std::move(path);
    std::erase_if(sentences_,
                  [this](const Sentence& each) { return each.isRead && each.path != kept_; });
    showPage();
}

void Notice::forget(const std::string& path) {
    std::erase_if(sentences_, [&](const Sentence& each) { return each.path == path; });
    showPage();
}

void Notice::turnPage() {
    const auto pageEnd = sentences_.begin() + static_cast<std::ptrdiff_t>(page_.size());
    std::for_each(sentences_.begin(), pageEnd, [](Sentence& each) { each.isRead = true; });
    std::rotate(sentences_.begin(), pageEnd, sentences_.end());
    std::erase_if(sentences_,
                  [this](const Sentence& each) { return each.isRead && each.path != kept_; });
    showPage();
}

void Notice::showPage() {
    using namespace std::chrono_literals;
    constexpr int roomy = 380;
    const std::size_t room = window()->height() < roomy ? 2 : 3;
    const auto before = std::exchange(page_, {});
    for (std::size_t i = 0; i < std::min(room, sentences_.size()); ++i)
        page_.push_back(sentences_[i].text);
    setAccessibleName(fullText());
    showText();
    if (isHidden() != page_.empty()) {
        setVisible(!page_.empty()); // gives the text its room
        emit appearanceChanged();
    }
    if (sentences_.empty() || sentences_.front().isRead)
        end_.stop();
    else if (page_ != before)
        end_.start(4s + 60ms * text().size());
}

void Notice::showText() {
    QStringList lines;
    for (std::size_t i = 0; i < page_.size(); ++i)
        lines += fitted(sentences_[i]);
    if (const auto others = static_cast<int>(sentences_.size() - page_.size()); others > 0)
        lines += tr("and %n more", nullptr, others);
    setText(lines.join('\n'));
}

QString Notice::fitted(const Sentence& sentence) const {
    const auto elided = [this](const QString& text, int room) {
        return fontMetrics().elidedText(text, Qt::ElideMiddle, room);
    };
    const int line = contentsRect().width();
    QString text = sentence.text;
    if (const QString path = shownLine(sentence.path); !path.isEmpty() && text.contains(path))
        text.replace(text.indexOf(path), path.size(),
                     elided(path, line - 2 * fontMetrics().averageCharWidth())); // a colon follows
    // Another path in it may be a word that no line has room for.
    QStringList words = text.split(' ');
    for (QString& word : words)
        word = elided(word, line);
    return words.join(' ');
}

QString Notice::fullText() const {
    QStringList lines;
    for (const Sentence& sentence : sentences_)
        lines += sentence.text;
    return lines.join('\n');
}

QSize Notice::minimumSizeHint() const {
    return {fontMetrics().averageCharWidth() * 8, QLabel::minimumSizeHint().height()};
}

bool Notice::event(QEvent* event) {
    if (event->type() != QEvent::ToolTip)
        return QLabel::event(event);
    // Not the label's own tool tip: its markup would be read out as the description.
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), toolTipOf(fullText()), this);
    return true;
}

void Notice::resizeEvent(QResizeEvent* event) {
    QLabel::resizeEvent(event);
    if (event->size().width() != event->oldSize().width())
        showText();
}
