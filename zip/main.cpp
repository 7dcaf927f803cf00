#include "base/Number.h"
#include "base/Printable.h"
#include "base/ProgramStart.h"
#include "base/ProgressChannel.h"
#include "base/Version.h"
#include "zip/Compressor.h"
#include "zip/Packer.h"
#include "zip/ZipFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <thread>

#include <getopt.h>
#include <unistd.h>

namespace zip {
namespace {

constexpr int done = 0;
constexpr int failed = 1;
constexpr int wrongUsage = 2;

constexpr int mostThreads = 256;

/// 1980-01-01 00:00:00 UTC, the earliest time that every field of an archive can hold.
constexpr std::int64_t earliestZipTime = 315532800;

constexpr const char* usage = R"(usage: kelpmoray-zip [OPTION]... OUTPUT.zip PACKAGE
Packs the folder PACKAGE into OUTPUT.zip. An archive that is already there is replaced.
Kept are names, content, symbolic links, permissions, and the time of the last change in
whole seconds from 1970 to 2106. Not kept are owners, hard links, extended attributes and
access control lists; a line on standard error names those of the last two.

  -l LEVEL        from 1 (quick) to 9 (small), 5 if not given
  -j THREADS      how many threads work, all processors if not given; the archive is the same
  --reproducible  every time in the archive is SOURCE_DATE_EPOCH, or 1980-01-01 if that is not set
  --verify        read the archive back and compare it with PACKAGE before it appears
  --progress      ten times a second a line on standard error: percent of the bytes that are done
  --help          show this text
  --version       show the version

Exit status: 0 done, 1 failed, 2 wrong usage.
)";

struct CommandLine {
    PackOptions options;
    bool showProgress = false;
};

int report(std::string_view sentence, int status) {
    std::fprintf(stderr, "kelpmoray-zip: %s\n", base::printable(sentence).c_str());
    return status;
}

base::Outcome useReproducibleTime(PackOptions& options) {
    options.fixedTime = earliestZipTime;
    const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
    if (epoch == nullptr)
        return {};
    const auto seconds =
        base::numberIn<std::int64_t>(epoch, 0, std::numeric_limits<std::uint32_t>::max());
    if (!seconds)
        return base::Error{base::ErrorKind::Usage, std::string("SOURCE_DATE_EPOCH is \"") + epoch +
                                                       "\". Set it to seconds since 1970."};
    options.fixedTime = *seconds;
    return {};
}

enum LongOption : int { Reproducible = 256, Verify, Progress, Help, Version };

/// Applies one option; `given` is how the user wrote it.
base::Outcome apply(int option, const char* value, const std::string& given, CommandLine& line) {
    switch (option) {
    case 'l':
        if (const auto level = base::numberIn<int>(value, quickestLevel, smallestLevel)) {
            line.options.level = *level;
            return {};
        }
        return base::Error{base::ErrorKind::Usage, std::string("The level is \"") + value +
                                                       "\". Give a number from 1 to 9."};
    case 'j':
        if (const auto threads = base::numberIn<int>(value, 1, mostThreads)) {
            line.options.threads = static_cast<unsigned>(*threads);
            return {};
        }
        return base::Error{base::ErrorKind::Usage, std::string("The number of threads is \"") +
                                                       value + "\". Give a number from 1 to " +
                                                       std::to_string(mostThreads) + "."};
    case Reproducible:
        return useReproducibleTime(line.options);
    case Verify:
        line.options.verify = true;
        return {};
    case Progress:
        line.showProgress = true;
        return {};
    case ':':
        return base::Error{base::ErrorKind::Usage,
                           "The option " + given + " needs a number. See kelpmoray-zip --help."};
    default:
        return base::Error{base::ErrorKind::Usage,
                           "There is no option " + given + ". See kelpmoray-zip --help."};
    }
}

int run(int argumentCount, char** arguments) {
    base::startProgram();
    static const option longOptions[] = {{"reproducible", no_argument, nullptr, Reproducible},
                                         {"verify", no_argument, nullptr, Verify},
                                         {"progress", no_argument, nullptr, Progress},
                                         {"help", no_argument, nullptr, Help},
                                         {"version", no_argument, nullptr, Version},
                                         {nullptr, 0, nullptr, 0}};
    CommandLine line;
    line.options.threads = std::max(1U, std::thread::hardware_concurrency());
    int option = 0;
    ::opterr = 0;
    while ((option = ::getopt_long(argumentCount, arguments, ":l:j:", longOptions, nullptr)) !=
           -1) {
        if (option == Help || option == Version) {
            const std::string version = std::string("kelpmoray-zip ") + base::version() + '\n';
            std::fputs(option == Help ? usage : version.c_str(), stdout);
            return done;
        }
        const bool isShort = optopt > 0 && optopt < Reproducible;
        const std::string given =
            isShort ? std::string{'-', static_cast<char>(optopt)} : arguments[optind - 1];
        if (auto applied = apply(option, optarg, given, line); !applied)
            return report(applied.error().sentence, wrongUsage);
    }
    if (argumentCount - optind != 2)
        return report("Give an archive and a package. See kelpmoray-zip --help.", wrongUsage);
    base::ProgressChannel progress(line.showProgress);
    if (progress.open())
        line.options.progress = [&](std::uint64_t bytes, std::uint64_t total) {
            progress.tell(bytes, total);
        };
    line.options.notice = [](const std::string& sentence) { report(sentence, done); };
    auto packed = pack(arguments[optind], arguments[optind + 1], line.options);
    return packed ? done : report(packed.error().sentence, failed);
}

} // namespace
} // namespace zip

int main(int argc, char** argv) {
    return zip::run(argc, argv);
}
