#pragma once

#include <QByteArray>
#include <QObject>
#include <QStringList>

#include <functional>
#include <string>

/// Runs the program that keeps the user's identities, one command at a time. Main thread.
///
/// Secrets go through its standard input, never into an argument, which other users could read.
class IdentityTool : public QObject {
public:
    /// What a command printed, and whether it succeeded. A failure's text is the error's sentence.
    struct Answer {
        bool succeeded = false;
        QString text;
    };

    explicit IdentityTool(std::string program, QObject* parent = nullptr);

    /// Starts a command and returns at once; `answered` is called later. When `receiver` goes
    /// before that, the command is ended. `input` is what the command reads.
    void run(const QStringList& arguments, const QByteArray& input, QObject* receiver,
             std::function<void(const Answer&)> answered);

private:
    std::string program_;
};
