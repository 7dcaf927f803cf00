#include "base/ReplacedFile.h"

#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <csignal>
#include <functional>
#include <future>
#include <set>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
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
/// From now on this thread sees file systems without unnamed files.
void forgoUnnamedFiles() {
    constexpr auto unnamed = static_cast<unsigned>(O_TMPFILE & ~O_DIRECTORY);
    sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_openat, 0, 3),
                           BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
                           BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, unnamed, 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program{std::size(steps), steps};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}
#ifdef SYS_rename
constexpr auto renameCall = SYS_rename;
#else
constexpr auto renameCall = SYS_renameat;
#endif

/// Runs `body` in a thread in which a signal seems to interrupt each of some calls once. Returns
/// how many calls those were.
std::size_t withInterruptions(const std::function<void()>& body) {
    std::promise<int> listenerPromise;
    std::thread thread([&] {
        sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                               BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fsync, 3, 0),
                               BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ftruncate, 2, 0),
                               BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 1, 0),
                               BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, renameCall, 0, 1),
                               BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF),
                               BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
        const sock_fprog program{std::size(steps), steps};
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        listenerPromise.set_value(static_cast<int>(syscall(
            SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program)));
        body();
    });
    const base::FileDescriptor listener(listenerPromise.get_future().get());
    std::set<int> interrupted;
    pollfd events{listener.get(), POLLIN, 0};
    while (poll(&events, 1, -1) == 1 && (events.revents & POLLIN) != 0) {
        seccomp_notif call{};
        EXPECT_EQ(ioctl(listener.get(), SECCOMP_IOCTL_NOTIF_RECV, &call), 0);
        seccomp_notif_resp answer{call.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        if (interrupted.insert(call.data.nr).second)
            answer = {call.id, 0, -EINTR, 0};
        EXPECT_EQ(ioctl(listener.get(), SECCOMP_IOCTL_NOTIF_SEND, &answer), 0);
    }
    thread.join();
    return interrupted.size();
}

constexpr bool mayBeUnnamed[] = {false, true};
#else
void forgoUnnamedFiles() {}
constexpr bool mayBeUnnamed[] = {false};
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

    /// Runs `body` in a process of its own that ends by `signal`, and is not reaped before the
    /// end of the test.
    void inProcessEndedBy(int signal, const std::function<void()>& body) {
        const pid_t child = fork();
        if (child == 0) {
            std::signal(signal, SIG_DFL);
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

    base::ReplacedFile create() {
        auto file = base::ReplacedFile::createFor(target_);
        if (!file)
            ADD_FAILURE() << file.error().sentence;
        return *std::move(file);
    }

    void writeTo(const base::ReplacedFile& file, std::string_view text) {
        ASSERT_TRUE(base::writeAt(file.descriptor(),
                                  {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                                  0));
    }

    TemporaryFolder folder_;
    std::string target_ = folder_.path("target");
    std::vector<pid_t> children_;
};

INSTANTIATE_TEST_SUITE_P(FileSystem, ReplacedFile, testing::ValuesIn(mayBeUnnamed),
                         [](const auto& has) { return has.param ? "unnamed" : "named"; });

TEST_P(ReplacedFile, takes_the_place_only_when_committed) {
    inThread([&] {
        for (const std::string before : {"", "older"}) {
            {
                const auto dropped = create();
                writeTo(dropped, "half");
            }
            auto first = create();
            auto second = create();
            writeTo(first, "first");
            writeTo(second, "second");
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

#ifdef __linux__
TEST_P(ReplacedFile, tries_again_what_a_signal_interrupts) {
    folder_.makeFile("target", "older");
    const std::size_t interrupted = withInterruptions([&] {
        if (!GetParam())
            forgoUnnamedFiles();
        auto file = create();
        writeTo(file, "whole and more");
        EXPECT_TRUE(base::truncateTo(file.descriptor(), 5));
        EXPECT_TRUE(file.commit());
    });
    EXPECT_EQ(interrupted, GetParam() ? 4 : 3);
    EXPECT_EQ(contentOf(target_), "whole");
}
#endif

TEST_P(ReplacedFile, keeps_what_it_cannot_replace) {
    inThread([&] {
        auto file = create();
        folder_.makeFile("target/inside");
        auto committed = file.commit();
        ASSERT_FALSE(committed);
        EXPECT_EQ(committed.error().kind, base::ErrorKind::Conflict);
    });
    EXPECT_THAT(names(), ElementsAre("target"));
    EXPECT_EQ(base::ReplacedFile::createFor(folder_.path("missing/x")).error().kind,
              base::ErrorKind::NotFound);
}

TEST_P(ReplacedFile, has_the_mode_and_owner_of_another_if_asked_for) {
    struct stat status {};
    folder_.makeExecutable("target", "older");
    ASSERT_EQ(stat(target_.c_str(), &status), 0);
    status.st_mode = S_IFREG | 04751;
    inThread([&] {
        auto file = create();
        ASSERT_TRUE(file.keepModeAndOwnerOf(status));
        ASSERT_TRUE(file.commit());
    });
    struct stat after {};
    ASSERT_EQ(stat(target_.c_str(), &after), 0);
    EXPECT_EQ(after.st_mode, status.st_mode);
    EXPECT_EQ(after.st_uid, status.st_uid);
}

TEST_P(ReplacedFile, of_an_ended_process_is_removed_by_the_next_run_and_nothing_else_is) {
    const std::string digits(31, 'a');
    const std::vector<std::string> others{
        ".kelpmoray-packing-my-notes-99999999", ".kelpmoray-99999999.zip.tmp",
        ".kelpmoray-" + digits + ".tmp", ".kelpmoray-" + digits + "g.tmp"};
    for (const std::string& other : others)
        folder_.makeFile(other);
    const std::string link = ".kelpmoray-" + digits + "b.tmp";
    folder_.makeLink(link, others[0]);
    inThread([&] {
        const auto alive = create();
        for (const int signal : {SIGKILL, SIGTERM})
            inProcessEndedBy(signal, [&] {
                auto* left = new base::ReplacedFile(create());
                writeTo(*left, "half");
            });
        auto file = create();
        writeTo(file, "whole");
        ASSERT_TRUE(file.commit());
    });
    auto expected = others;
    expected.insert(expected.end(), {link, "target"});
    EXPECT_THAT(names(), testing::UnorderedElementsAreArray(expected));
}

TEST_P(ReplacedFile, is_removed_when_a_signal_ends_the_process) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        inProcessEndedBy(signal, [&] { new base::ReplacedFile(create()); });
    EXPECT_THAT(names(), ElementsAre());
}

} // namespace
