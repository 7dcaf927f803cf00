#include "app/identities/IdentityTool.h"

#include <QProcess>

#include <utility>

namespace {

/// The program names itself in front of an error, as programs on a terminal do.
constexpr QLatin1String name("kelpmoray-security: ");

/// A sentence that names a remedy names it as an option; the dialogs have fields instead.
constexpr std::pair<QLatin1String, QLatin1String> fieldsForOptions[] = {
    {QLatin1String("with --chain"), QLatin1String("under Issuers")},
    {QLatin1String("with --key"), QLatin1String("under Key")},
    {QLatin1String(" See kelpmoray-security --help."), QLatin1String("")}};

} // namespace

IdentityTool::IdentityTool(std::string program, QObject* parent)
    : QObject(parent), program_(std::move(program)) {}

void IdentityTool::run(const QStringList& arguments, const QByteArray& input, QObject* receiver,
                       std::function<void(const Answer&)> answered) {
    auto* process = new QProcess(this);
    const auto tell = [process, answered = std::move(answered)](bool succeeded) {
        process->deleteLater();
        const QByteArray output =
            succeeded ? process->readAllStandardOutput() : process->readAllStandardError();
        QString text = QString::fromUtf8(output).trimmed();
        if (!succeeded && text.isEmpty())
            text = process->errorString();
        if (text.startsWith(name))
            text.remove(0, name.size());
        for (const auto& [option, field] : fieldsForOptions)
            text.replace(option, field);
        answered({succeeded, text});
    };
    connect(process, &QProcess::finished, receiver, [tell](int code, QProcess::ExitStatus status) {
        tell(status == QProcess::NormalExit && code == 0);
    });
    connect(process, &QProcess::errorOccurred, receiver, [tell](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            tell(false);
    });
    // Without a receiver the command is not wanted any more.
    connect(receiver, &QObject::destroyed, process, &QProcess::kill);
    connect(process, &QProcess::finished, process, &QObject::deleteLater);
    process->start(QString::fromStdString(program_), arguments);
    process->write(input);
    process->closeWriteChannel();
}
