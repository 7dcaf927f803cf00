#include "app/identities/IdentityTool.h"

#include <QProcess>

IdentityTool::IdentityTool(std::string program, QObject* parent)
    : QObject(parent), program_(std::move(program)) {}

void IdentityTool::run(const QStringList& arguments, const QByteArray& input, QObject* receiver,
                       std::function<void(const Answer&)> answered) {
    auto* process = new QProcess(this);
    const auto tell = [process, answered = std::move(answered)](bool succeeded) {
        process->disconnect();
        process->deleteLater();
        const QByteArray output =
            succeeded ? process->readAllStandardOutput() : process->readAllStandardError();
        QString text = QString::fromUtf8(output).trimmed();
        if (!succeeded && text.isEmpty())
            text = process->errorString();
        // The program names itself in front of a sentence, as programs on a terminal do.
        text.remove("kelpmoray-security: ");
        answered({succeeded, text});
    };
    connect(process, &QProcess::finished, receiver, [tell](int code, QProcess::ExitStatus status) {
        tell(status == QProcess::NormalExit && code == 0);
    });
    connect(process, &QProcess::errorOccurred, receiver, [tell](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            tell(false);
    });
    process->start(QString::fromStdString(program_), arguments);
    process->write(input);
    process->closeWriteChannel();
}
