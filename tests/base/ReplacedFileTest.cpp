#include "base/ReplacedFile.h"

#include "base/ByteReader.h"
#include "tests/support/ExpectFails.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>
#include <functional>
#include <future>
#include <set>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#ifdef __linux__
#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

namespace {

using testing::ElementsAre;

#ifdef __linux__
constexpr bool mayBeUnnamed[] = {false, true};

/// From now on the system does `action` with these calls of this thread, if their third argument
/// has one of the bits in `flags`.
int filterCalls(std::initializer_list<unsigned> calls, unsigned flags, unsigned action,
                unsigned options = 0) {
    std::vector<sock_filter> steps;
    for (const unsigned call : calls)
        steps.insert(steps.end(),
                     {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 3),
                      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
                      BPF_JUMP(BPF_JMP | (flags == 0 ? BPF_JGE : BPF_JSET) | BPF_K, flags, 0, 1),
                      BPF_STMT(BPF_RET | BPF_K, action)});
    steps.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(steps.size()), steps.data()};
    EXPECT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    return static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, options, &program));
}

/// From now on this thread sees file systems without unnamed files.
void forgoUnnamedFiles() {
    EXPECT_EQ(filterCalls({SYS_openat}, static_cast<unsigned>(O_TMPFILE & ~O_DIRECTORY),
                          SECCOMP_RET_ERRNO | EOPNOTSUPP),
              0);
}
#else
constexpr bool mayBeUnnamed[] = {false};

void forgoUnnamedFiles() {}
#endif

/// Whether the file system has unnamed files.
class ReplacedFile : public testing::TestWithParam<bool> {
protected:
    void inThread(const std::function<void()>& body) {
        std::thread([&] {
            if (!GetParam())
                forgoUnnamedFiles();
            body();
        }).join();
    }

    /// Runs `body` in a process that ends by `signal` and is not reaped before the end of the test.
    void inProcessEndedBy(int signal, const std::function<void()>& body) {
        const pid_t child = fork();
        if (child == 0) {
            std::signal(signal, SIG_DFL);
            const rlimit noCore{};
            setrlimit(RLIMIT_CORE, &noCore);
            inThread([&] {
                body();
                kill(getpid(), signal);
                pause();
            });
        }
        children_.push_back(child);
        siginfo_t ended{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
        EXPECT_EQ(ended.si_status, signal);
    }

    void TearDown() override {
        for (const pid_t child : children_)
            waitpid(child, nullptr, 0);
    }

    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& file : std::filesystem::directory_iterator(folder_.path()))
            found.push_back(file.path().filename());
        return found;
    }

    [[nodiscard]] base::ReplacedFile created(std::string_view content) const {
        auto file = base::ReplacedFile::createFor(target_);
        EXPECT_TRUE(file && base::writeAt(file->descriptor(), base::bytesOf(content), 0));
        return *std::move(file);
    }

    TemporaryFolder folder_;
    std::string target_ = folder_.path("target");
    std::vector<pid_t> children_;
};

INSTANTIATE_TEST_SUITE_P(FileSystem, ReplacedFile, testing::ValuesIn(mayBeUnnamed),
                         [](const auto& has) { return has.param ? "unnamed" : "named"; });

TEST_P(ReplacedFile, TakesThePlaceOnlyWhenCommitted) {
    inThread([&] {
        for (const std::string before : {"", "older"}) {
            (void)created("dropped");
            auto first = created("first");
            auto second = created("second");
            EXPECT_EQ(contentOf(target_), before);
            EXPECT_EQ(names().size(), (before.empty() ? 0 : 1) + (GetParam() ? 0 : 2));
            ASSERT_TRUE(first.commit());
            EXPECT_EQ(contentOf(target_), "first");
            ASSERT_TRUE(second.commit());
            EXPECT_EQ(contentOf(target_), "second");
            EXPECT_THAT(names(), ElementsAre("target"));
            folder_.makeFile("target", "older");
        }
    });
}

TEST_P(ReplacedFile, HasThePermissionsOfTheOldOne) {
    namespace fs = std::filesystem;
    inThread([&] {
        ASSERT_TRUE(created("new").commit());
        const fs::perms usual = fs::status(target_).permissions();
        for (const fs::perms mode : {fs::perms(0600), fs::perms(0444), fs::perms(0777)}) {
            fs::permissions(target_, mode);
            auto file = created("again");
            struct stat status {};
            ASSERT_EQ(fstat(file.descriptor(), &status), 0);
            EXPECT_EQ(fs::perms(status.st_mode & 07777U), mode);
            ASSERT_TRUE(file.commit());
            EXPECT_EQ(fs::status(target_).permissions(), mode);
        }
        fs::remove(target_);
        fs::create_symlink(folder_.makeFile("other"), target_);
        fs::permissions(folder_.path("other"), fs::perms(0600));
        ASSERT_TRUE(created("instead of a link").commit());
        EXPECT_EQ(fs::status(target_).permissions(), usual);
    });
}

TEST_P(ReplacedFile, KeepsWhatItCannotReplace) {
    inThread([&] {
        auto file = created("file");
        folder_.makeFile("target/inside");
        EXPECT_FAILS(file.commit(), Conflict);
        EXPECT_FAILS(base::ReplacedFile::createFor(folder_.path("missing/x")), NotFound);
    });
    EXPECT_THAT(names(), ElementsAre("target"));
}

TEST_P(ReplacedFile, OfAnEndedProcessIsRemovedByTheNextRunAndNothingElseIs) {
    const std::string digits(31, 'a');
    std::vector<std::string> expected{
        ".kelpmoray-packing-my-notes-99999999", ".kelpmoray-99999999.zip.tmp",
        ".kelpmoray-" + digits + "aa.tmp", ".kelpmoray-" + digits + "g.tmp"};
    for (const std::string& other : expected)
        folder_.makeFile(other);
    expected.push_back(".kelpmoray-" + digits + "b.tmp");
    ASSERT_EQ(mkfifo(folder_.path(expected.back()).c_str(), 0600), 0);
    inThread([&] {
        auto alive = created("alive");
        inProcessEndedBy(SIGKILL, [&] { new base::ReplacedFile(created("half")); });
        ASSERT_TRUE(created("whole").commit());
        ASSERT_TRUE(alive.commit());
    });
    expected.push_back("target");
    EXPECT_THAT(names(), testing::UnorderedElementsAreArray(expected));
}

TEST_P(ReplacedFile, IsRemovedWhenASignalEndsTheProcess) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGUSR1, SIGUSR2, SIGXCPU})
        inProcessEndedBy(signal, [&] { new base::ReplacedFile(created("half")); });
    EXPECT_THAT(names(), ElementsAre());
}

#ifdef __linux__
TEST_P(ReplacedFile, TriesAgainWhatASignalInterrupts) {
#ifdef SYS_rename
    constexpr auto renameCall = SYS_rename;
#else
    constexpr auto renameCall = SYS_renameat;
#endif
    folder_.makeFile("target", "older");
    std::promise<int> listening;
    auto replaced = std::async(std::launch::async, [&] {
        listening.set_value(filterCalls({SYS_fsync, SYS_ftruncate, SYS_linkat, renameCall}, 0,
                                        SECCOMP_RET_USER_NOTIF, SECCOMP_FILTER_FLAG_NEW_LISTENER));
        if (!GetParam())
            forgoUnnamedFiles();
        auto file = created("whole and more");
        return base::truncateTo(file.descriptor(), 5) && file.commit();
    });
    const base::FileDescriptor listener(listening.get_future().get());
    std::set<int> interrupted;
    pollfd events{listener.get(), POLLIN, 0};
    while (poll(&events, 1, -1) == 1 && (events.revents & POLLIN) != 0) {
        seccomp_notif call{};
        ASSERT_EQ(ioctl(listener.get(), SECCOMP_IOCTL_NOTIF_RECV, &call), 0);
        seccomp_notif_resp answer{call.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        if (interrupted.insert(call.data.nr).second)
            answer = {call.id, 0, -EINTR, 0};
        ASSERT_EQ(ioctl(listener.get(), SECCOMP_IOCTL_NOTIF_SEND, &answer), 0);
    }
    EXPECT_TRUE(replaced.get());
    EXPECT_EQ(interrupted.size(), GetParam() ? 4 : 3);
    EXPECT_EQ(contentOf(target_), "whole");
}
#endif

} // namespace
