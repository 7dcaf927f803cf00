#include "TestTree.h"

#include <array>
#include <csignal>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

/// The program at work on a package that keeps it busy for long.
class Program : public testing::Test {
protected:
    ShellResult run(const std::string& arguments, const std::string& before = "") const {
        return runInShell("cd " + shellQuoted(folder_ / "") + " && " + before + " " +
                          shellQuoted(KELPMORAY_ZIP) + " " + arguments);
    }

    /// Starts it on a file of a terabyte, and returns once it has written some of the archive.
    pid_t startLongRun() const {
        const std::string package = folder_ / "Long.app";
        const std::string archive = folder_ / "Long.zip";
        writeSparseFile(package + "/file", std::uintmax_t{1} << 40);
        std::array<int, 2> pipe{};
        EXPECT_EQ(::pipe(pipe.data()), 0);
        const pid_t process = ::fork();
        if (process == 0) {
            // Whoever runs the tests in the background may ignore SIGINT.
            for (const int signal : {SIGINT, SIGTERM, SIGHUP})
                std::signal(signal, SIG_DFL);
            ::dup2(pipe[1], STDERR_FILENO);
            ::execl(KELPMORAY_ZIP, KELPMORAY_ZIP, "--progress", archive.c_str(), package.c_str(),
                    nullptr);
            ::_exit(127);
        }
        ::close(pipe[1]);
        char first = 0;
        EXPECT_EQ(::read(pipe[0], &first, 1), 1);
        // Open until the end of the test, so that further lines do no harm.
        progress_ = pipe[0];
        return process;
    }

    /// Ends it by the signal; returns the one that it died of.
    int endBy(pid_t process, int signal) const {
        EXPECT_EQ(::kill(process, signal), 0);
        int status = 0;
        EXPECT_EQ(::waitpid(process, &status, 0), process);
        ::close(progress_);
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    static std::string temporaryOf(pid_t process) {
        return ".kelpmoray-" + std::to_string(process) + ".zip.tmp";
    }

    TemporaryFolder folder_;
    mutable int progress_ = -1;
};

TEST_F(Program, packs_and_says_nothing) {
    std::mt19937 random(51);
    writeFile(folder_ / "A.app/file", compressibleBytes(random, 30000));
    for (const char* arguments :
         {"-l 1 quick.zip A.app", "-j 3 A.zip A.app", "small.zip A.app -l9"}) {
        const ShellResult result = run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output, "");
    }
    EXPECT_EQ(runInShell("unzip -Z1 " + shellQuoted(folder_ / "A.zip")).output,
              "A.app/\nA.app/file\n");
    EXPECT_GT(fs::file_size(folder_ / "quick.zip"), fs::file_size(folder_ / "A.zip"));
    EXPECT_GT(fs::file_size(folder_ / "A.zip"), fs::file_size(folder_ / "small.zip"));
}

TEST_F(Program, packs_under_the_longest_name_that_a_file_can_have) {
    const std::string name = std::string(251, 'n') + ".zip";
    writeFile(folder_ / ("A.app/" + name), "1");
    EXPECT_EQ(run("--verify " + name + " A.app").status, 0);
    EXPECT_THAT(namesIn(folder_.path()), ElementsAre("A.app", name));
    const ShellResult tooLong = run("x" + name + " A.app");
    EXPECT_EQ(tooLong.status, 1);
    EXPECT_THAT(tooLong.output, HasSubstr("Shorten the path"));
}

TEST_F(Program, explains_itself) {
    EXPECT_THAT(run("--help").output, HasSubstr("usage: kelpmoray-zip"));
    EXPECT_EQ(run("--help").status, 0);
    EXPECT_THAT(run("--version").output, MatchesRegex("kelpmoray-zip [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(run("--version").status, 0);
}

TEST_F(Program, refuses_a_command_line_that_makes_no_sense) {
    writeFile(folder_ / "A.app/file", "1");
    for (const char* arguments :
         {"", "A.zip", "A.zip A.app more", "--unknown A.zip A.app", "-l 0 A.zip A.app",
          "-l 10 A.zip A.app", "-l x A.zip A.app", "-l 5x A.zip A.app", "-j 0 A.zip A.app",
          "-j -1 A.zip A.app", "-j 9999 A.zip A.app", "A.zip A.app -q", "A.zip A.app -l"}) {
        const ShellResult result = run(arguments);
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_THAT(result.output, MatchesRegex("kelpmoray-zip: [^\n]*\n"));
    }
    EXPECT_EQ(run("--reproducible A.zip A.app", "SOURCE_DATE_EPOCH=yesterday").status, 2);
    EXPECT_THAT(namesIn(folder_.path()), ElementsAre("A.app"));
}

TEST_F(Program, names_the_path_in_one_line_when_it_fails) {
    ShellResult result = run("A.zip Missing.app");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, MatchesRegex("kelpmoray-zip: [^\n]*Missing.app[^\n]*\n"));
    fs::create_directories(folder_ / "A.app/new\nline");
    ASSERT_EQ(runInShell("mkfifo " + shellQuoted(folder_ / "A.app/new\nline/pipe")).status, 0);
    result = run("A.zip A.app");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, MatchesRegex("kelpmoray-zip: [^\n]*new\\?line/pipe[^\n]*\n"));
}

TEST_F(Program, makes_reproducible_archives_of_the_same_content) {
    const auto archiveOf = [&](const std::string& before) {
        fs::remove_all(folder_ / "A.app");
        writeFile(folder_ / "A.app/file", "1");
        EXPECT_EQ(run("--verify --reproducible A.zip A.app", before).status, 0);
        return contentOf(folder_ / "A.zip");
    };
    const std::string first = archiveOf("TZ=XYZ-5");
    EXPECT_TRUE(archiveOf("TZ=XYZ+7") == first);
    const ShellResult listed = runInShell("TZ=UTC unzip -Z -T " + shellQuoted(folder_ / "A.zip"));
    EXPECT_THAT(listed.output, HasSubstr("19800101.000000"));
    EXPECT_FALSE(archiveOf("SOURCE_DATE_EPOCH=1000000000") == first);
    EXPECT_THAT(runInShell("TZ=UTC unzip -Z -T " + shellQuoted(folder_ / "A.zip")).output,
                HasSubstr("20010909.014640"));
}

TEST_F(Program, gives_the_archive_the_permissions_that_the_umask_leaves) {
    writeFile(folder_ / "A.app/file", "1");
    for (const auto& [umask, mode] : {std::pair{"022", 0644U}, {"077", 0600U}, {"002", 0664U}}) {
        ASSERT_EQ(run("A.zip A.app", std::string("umask ") + umask + " &&").status, 0);
        struct stat status {};
        ASSERT_EQ(::stat((folder_ / "A.zip").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, mode);
    }
}

TEST_F(Program, prints_percents_that_end_in_one_line_for_all_of_it) {
    writeFile(folder_ / "A.app/file", "1");
    for (int index = 0; index < 1000; ++index)
        writeFile(folder_ / ("A.app/later/" + std::to_string(index)), "");
    for (const char* options : {"--progress", "--progress --verify"})
        EXPECT_THAT(run(std::string(options) + " A.zip A.app").output,
                    MatchesRegex("([0-9][0-9]?%\n)*100%\n"));
}

TEST_F(Program, goes_on_when_nobody_reads_its_progress) {
    writeFile(folder_ / "A.app/file", "1");
    // The reader's end of the pipe is opened, so that ours opens too, and closed at once.
    const std::string withoutReader = "mkfifo pipe && { : < pipe & } && exec 2> pipe && wait &&";
    EXPECT_EQ(run("--progress A.zip A.app", withoutReader).status, 0);
    EXPECT_THAT(namesIn(folder_.path()), ElementsAre("A.app", "A.zip", "pipe"));
}

TEST_F(Program, leaves_nothing_behind_when_the_archive_would_be_too_long) {
    std::mt19937 random(50);
    writeFile(folder_ / "A.app/file", randomBytes(random, 100000));
    const ShellResult result = run("A.zip A.app", "ulimit -f 20;");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("File too large"));
    EXPECT_THAT(namesIn(folder_.path()), ElementsAre("A.app"));
}

TEST_F(Program, leaves_nothing_behind_when_a_signal_ends_it) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const pid_t process = startLongRun();
        EXPECT_EQ(endBy(process, signal), signal);
        EXPECT_THAT(namesIn(folder_.path()), ElementsAre("Long.app"));
    }
}

TEST_F(Program, removes_what_a_killed_run_has_left_but_not_what_a_running_one_needs) {
    const pid_t killed = startLongRun();
    EXPECT_EQ(endBy(killed, SIGKILL), SIGKILL);
    const std::string left = temporaryOf(killed);
    EXPECT_THAT(namesIn(folder_.path()), UnorderedElementsAre(left, "Long.app"));

    const pid_t running = startLongRun();
    const std::string needed = temporaryOf(running);
    EXPECT_THAT(namesIn(folder_.path()), UnorderedElementsAre(needed, "Long.app"));
    writeFile(folder_ / "Short.app/file", "1");
    for (const char* name : {".kelpmoray-notes.zip.tmp", ".kelpmoray-.zip.tmp", ".kelpmoray-1.tmp"})
        writeFile(folder_ / name, "not ours");
    EXPECT_EQ(run("Long.zip Short.app").status, 0);
    EXPECT_THAT(namesIn(folder_.path()),
                UnorderedElementsAre(needed, ".kelpmoray-notes.zip.tmp", ".kelpmoray-.zip.tmp",
                                     ".kelpmoray-1.tmp", "Long.app", "Long.zip", "Short.app"));
    EXPECT_EQ(endBy(running, SIGTERM), SIGTERM);
}

} // namespace
