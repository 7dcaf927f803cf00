#pragma once

#include <QLabel>
#include <QTimer>

#include <optional>
#include <string>
#include <vector>

/// Sentences that a person is to read: in order, as many at once as there is room for, each for as
/// long as it takes to read. All that are left are its tool tip and accessible name. Hidden while
/// there are none. Main thread.
class Notice : public QLabel {
    Q_OBJECT
public:
    explicit Notice(QWidget* parent = nullptr);

    /// `path`, where the sentence names it, is shortened in the middle if a line has no room for
    /// it.
    void explain(const std::string& sentence, const std::string& path);
    /// What is about `path` stays when it has been read, until another path is named, or none.
    void keep(std::optional<std::string> path);
    /// What is about `path` is not true any more.
    void forget(const std::string& path);
    [[nodiscard]] QSize minimumSizeHint() const override;

signals:
    /// It was shown or hidden.
    void appearanceChanged();

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Sentence {
        QString text;
        std::string path;
        bool isRead = false; ///< and kept
    };

    void turnPage();
    void showPage();
    void showText();
    [[nodiscard]] QString fitted(const Sentence& sentence) const;
    [[nodiscard]] QString fullText() const;

    std::vector<Sentence> sentences_; // those that are read last, those that are shown first
    std::vector<QString> page_;       // the texts of those that are shown
    std::optional<std::string> kept_;
    QTimer end_{this}; // of the time to read the page
};
