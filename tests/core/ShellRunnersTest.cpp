#include "core/ShellRunners.h"

#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>
#include <thread>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

using testing::ElementsAre;
using testing::IsEmpty;
using VornNSStringAdditions::outputWhenRunAsShellCommand;
using VornNSStringAdditions::runAsShellCmd;

namespace {

constexpr const char* bytesCommand = "head -c %i /dev/zero | tr '\\0' ";

std::string letters(int count) {
    return formatted(bytesCommand, count) + "a";
}

/// Prints the mask of the signals that a process ignores, in hexadecimal.
std::string ignoredBy(const std::string& process) {
    return "sed -n 's/^SigIgn:[^0-9a-f]*//p' /proc/" + process + "/status";
}

void handler(int) {}

} // namespace

TEST(RunShellCommand, GivesAtMostTheFirst512000Bytes) {
    EXPECT_EQ(runShellCommand(letters(511'999)), std::string(511'999, 'a'));
    EXPECT_EQ(runShellCommand(letters(512'000)), std::string(512'000, 'a'));
    EXPECT_EQ(runShellCommand(letters(2'000'000)), std::string(512'000, 'a'));
}

TEST(RunShellCommand, GivesTheTextUpToTheFirstZeroByteOrNoneAndLogsNothing) {
    const LogCapture log;
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"printf 'a\\0b'", "a"},
        {"printf '\\0b'", ""},
        {"printf 'a\\0\\377'", "a"},
        {"", std::nullopt},
        {"true", std::nullopt},
        {"printf '\\377'", std::nullopt},
        {"echo hidden >/dev/null 2>&1", std::nullopt},
        {"/nonexistent/tool 2>/dev/null", std::nullopt}};
    for (const auto& [command, text] : cases)
        EXPECT_EQ(runShellCommand(command), text) << command;
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(ShellRunners, LetNoExitStatusDecideAndLeaveThoseInsideTheCommandIntact) {
    EXPECT_EQ(runShellCommand("sh -c 'exit 3'; echo $?; exit 7"), "3\n");
    EXPECT_EQ(outputWhenRunAsShellCommand("sh -c 'exit 3' | cat; x=$(exit 4); echo $?; exit 7"),
              "4\n");
    EXPECT_EQ(runAsShellCmd("echo text; kill -9 $$"), "text\n");
}

TEST(ShellRunners, WaitForTheEndOfACommandThatClosesItsOutput) {
    const TemporaryFolder folder;
    const std::string command = "echo text; exec >&- <&-; i=0; while [ $i -lt 100000 ]; do "
                                "i=$((i + 1)); done; mkdir '";
    (void)runShellCommand(command + folder.path("first") + "'");
    EXPECT_TRUE(std::filesystem::exists(folder.path("first")));
    (void)outputWhenRunAsShellCommand(command + folder.path("second") + "'");
    EXPECT_TRUE(std::filesystem::exists(folder.path("second")));
}

TEST(ShellRunners, IgnoreTheChildSignalMeanwhileAndPutItBack) {
#ifdef __linux__
    const auto isIgnored = [](const std::optional<std::string>& answer, int signal) {
        return (std::stoull(answer.value(), nullptr, 16) >> (signal - 1) & 1U) != 0;
    };
    EXPECT_TRUE(isIgnored(runShellCommand(ignoredBy("$PPID")), SIGCHLD));
    EXPECT_TRUE(isIgnored(outputWhenRunAsShellCommand(ignoredBy("$PPID")), SIGCHLD));
    EXPECT_FALSE(isIgnored(runAsShellCmd(ignoredBy("$PPID")), SIGCHLD));
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        std::signal(signal, SIG_IGN);
        EXPECT_FALSE(isIgnored(runShellCommand(ignoredBy("self")), signal)) << "by the command";
        std::signal(signal, SIG_DFL);
    }
#endif
    std::signal(SIGCHLD, handler);
    (void)runShellCommand("true");
    EXPECT_EQ(std::signal(SIGCHLD, handler), handler);
    (void)outputWhenRunAsShellCommand("echo x");
    EXPECT_EQ(std::signal(SIGCHLD, SIG_IGN), handler);
    EXPECT_EQ(runShellCommand("echo x"), "x\n");
    EXPECT_EQ(std::signal(SIGCHLD, SIG_DFL), SIG_IGN);
}

TEST(ShellRunners, PutTheChildSignalBackWhenTheLastOfSeveralCommandsEnds) {
    const TemporaryFolder folder;
    for (const char* name : {"started", "first", "second"})
        ASSERT_EQ(mkfifo(folder.path(name).c_str(), 0600), 0);
    const std::string enter = "cd '" + folder.path() + "'; ";
    std::signal(SIGCHLD, handler);
    std::thread other([&] {
        (void)runShellCommand(enter + "echo >started; read line <first");
        std::ofstream(folder.path("second")) << "go\n";
    });
    (void)contentOf(folder.path("started"));
    // Begins while the other one runs, and ends after it.
    (void)runShellCommand(enter + "echo >first; read line <second");
    other.join();
    EXPECT_EQ(std::signal(SIGCHLD, SIG_DFL), handler);
}

TEST(OutputWhenRunAsShellCommand, GathersTheWholeOutput) {
    for (int size : {1, 255, 256, 257, 512, 100'000})
        EXPECT_EQ(outputWhenRunAsShellCommand(letters(size)), std::string(std::size_t(size), 'a'));
    const std::string split = std::string(255, 'a') + "ü" + std::string(300, 'b');
    EXPECT_EQ(outputWhenRunAsShellCommand("printf '%s' " + split), split);
    EXPECT_EQ(outputWhenRunAsShellCommand("printf a >&0; printf b"), "ab")
        << "standard input is the same stream";
}

TEST(OutputWhenRunAsShellCommand, GivesNoneAndLogsForNoText) {
    const LogCapture log;
    EXPECT_EQ(outputWhenRunAsShellCommand(""), std::nullopt);
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_EQ(outputWhenRunAsShellCommand("true"), std::nullopt);
    EXPECT_EQ(outputWhenRunAsShellCommand("printf '\\303'"), std::nullopt);
    const std::string method = "-[NSString(VornNSStringAdditions) outputWhenRunAsShellCommand]";
    EXPECT_THAT(log.messages(), ElementsAre(method + " failed for command \"true\"",
                                            method + " failed for command \"printf '\\303'\""));
}

TEST(ShellRunners, SayWhenACommandCannotBeStarted) {
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    LogCapture log;
    // Some checks of the sanitizers take descriptors the first time they meet a type.
    logEvent("first");
    log.clear();
    setrlimit(RLIMIT_NOFILE, &none);
    const auto first = runShellCommand("echo x");
    const auto second = outputWhenRunAsShellCommand("echo x");
    const auto third = runAsShellCmd("echo x");
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(first, std::nullopt);
    EXPECT_EQ(second, std::nullopt);
    EXPECT_EQ(third, std::nullopt);
    EXPECT_THAT(log.messages(),
                ElementsAre("-[NSString(VornNSStringAdditions) outputWhenRunAsShellCommand] failed "
                            "to run  \"echo x\""));
}

TEST(RunAsShellCmd, ReturnsWhenTheOutputIsClosedAndNotLater) {
    const TemporaryFolder folder;
    const std::string gate = folder.path("gate");
    ASSERT_EQ(runAsShellCmd("mkfifo '" + gate + "' && echo made"), "made\n");
    const auto pid = runAsShellCmd("echo $$; exec >&-; read line <'" + gate + "'");
    ASSERT_TRUE(pid.has_value());
    EXPECT_EQ(kill(std::stoi(*pid), 0), 0) << "the command still waits at the gate";
    std::ofstream(gate) << "go\n";
    EXPECT_EQ(runAsShellCmd("true"), std::nullopt);
    EXPECT_EQ(runAsShellCmd("printf '\\377'"), std::nullopt);
}

TEST(ShellRunners, LeaveNoDescriptorAndNoZombieBehind) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/dev/fd"), {});
    };
    const auto before = descriptors();
    for (int i = 0; i < 20; ++i) {
        (void)runShellCommand("echo x");
        (void)runShellCommand("head -c 600000 /dev/zero | tr '\\0' a");
        (void)outputWhenRunAsShellCommand("echo x");
    }
    EXPECT_EQ(descriptors(), before);
    EXPECT_EQ(outputWhenRunAsShellCommand("ls /dev/fd"), runShellCommand("ls /dev/fd"))
        << "neither inherits the other end";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
    EXPECT_EQ(errno, ECHILD);
    EXPECT_EQ(runAsShellCmd("echo x"), "x\n");
    EXPECT_EQ(descriptors(), before);
    siginfo_t info = {};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOWAIT | WNOHANG) == 0) {
        std::this_thread::yield();
    }
}
