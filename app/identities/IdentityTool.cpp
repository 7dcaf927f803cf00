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

/// Prints the status behind the output: the process cannot be asked for it while a command runs
/// that lets SIGCHLD be ignored. The command ends with the shell.
constexpr const char* script =
    R"(exec 3<&0; "$@" <&3 3<&- & trap "kill $!" TERM; wait $!; printf '\n%d' $?)";

} // namespace

IdentityTool::IdentityTool(std::string program, QObject* parent)
    : QObject(parent), program_(std::move(program)) {}

void IdentityTool::run(const QStringList& arguments, const QByteArray& input, QObject* receiver,
                       std::function<void(const Answer&)> answered) {
    auto* process = new QProcess(this);
    const auto tell = [process, answered = std::move(answered)] {
        process->deleteLater();
        QByteArray output = process->readAllStandardOutput();
        const bool succeeded = output.endsWith("\n0");
        output.truncate(output.lastIndexOf('\n'));
        QString text =
            QString::fromUtf8(succeeded ? output : process->readAllStandardError()).trimmed();
        if (!succeeded && text.isEmpty())
            text = tr("The program of the identities has ended without a word. Try once more.");
        if (text.startsWith(name))
            text.remove(0, name.size());
        for (const auto& [option, field] : fieldsForOptions)
            text.replace(option, field);
        answered({succeeded, text});
    };
    connect(process, &QProcess::finished, receiver, tell);
    // Without a receiver the command is not wanted any more.
    connect(receiver, &QObject::destroyed, process, &QProcess::terminate);
    connect(process, &QProcess::finished, process, &QObject::deleteLater);
    process->start("/bin/sh",
                   QStringList{"-c", script, "sh", QString::fromStdString(program_)} + arguments);
    process->write(input);
    process->closeWriteChannel();
}
