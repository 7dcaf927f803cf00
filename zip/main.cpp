#include "base/Json.h"
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
#include <utility>

#include <getopt.h>
#include <sys/stat.h>
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
  --json          print what became of it as one JSON object on standard output, and nothing else
  --progress      ten times a second a line on standard error: percent of the bytes that are done
  -h, --help      show this text
  --version       show the version

Exit status: 0 done, 1 failed, 2 wrong usage.
)";

struct CommandLine {
    PackOptions options;
    bool showProgress = false;
    bool json = false;
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
                                                       "\". Set it to seconds since 1970, from 0 "
                                                       "to 4294967295."};
    options.fixedTime = *seconds;
    return {};
}

enum LongOption : int { Reproducible = 256, Verify, Progress, Json, Help, Version };

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
    case Json:
        line.json = true;
        return {};
    case ':':
        return base::Error{base::ErrorKind::Usage,
                           "The option " + given + " needs a number. See kelpmoray-zip --help."};
    default:
        return base::Error{base::ErrorKind::Usage,
                           "There is no option " + given + ". See kelpmoray-zip --help."};
    }
}

/// What became of an archive, for programs.
int tellInJson(const std::string& archive, const base::Outcome& packed, const CommandLine& line,
               const std::string& notice) {
    base::Json::Object object = {{"archive", archive}};
    struct stat status {};
    if (packed && ::stat(archive.c_str(), &status) == 0)
        object.emplace_back("size", std::int64_t(status.st_size));
    if (packed)
        object.emplace_back("verified", line.options.verify);
    else
        object.emplace_back("error", packed.error().sentence);
    if (!notice.empty())
        object.emplace_back("notice", notice);
    std::printf("%s\n", base::Json(std::move(object)).text().c_str());
    if (std::fflush(stdout) != 0)
        return report("What became of the archive could not be written down.", failed);
    return packed ? done : failed;
}

int packAndTell(const std::string& archive, const std::string& package, CommandLine line) {
    base::ProgressChannel progress(line.showProgress);
    if (progress.open())
        line.options.progress = [&](std::uint64_t bytes, std::uint64_t total) {
            progress.tell(bytes, total);
        };
    std::string notice;
    line.options.notice = [&](const std::string& sentence) {
        notice = sentence;
        if (!line.json)
            report(sentence, done);
    };
    const auto packed = pack(archive, package, line.options);
    if (line.json)
        return tellInJson(archive, packed, line, notice);
    return packed ? done : report(packed.error().sentence, failed);
}

int run(int argumentCount, char** arguments) {
    base::startProgram();
    static const option longOptions[] = {{"reproducible", no_argument, nullptr, Reproducible},
                                         {"verify", no_argument, nullptr, Verify},
                                         {"progress", no_argument, nullptr, Progress},
                                         {"json", no_argument, nullptr, Json},
                                         {"help", no_argument, nullptr, Help},
                                         {"version", no_argument, nullptr, Version},
                                         {nullptr, 0, nullptr, 0}};
    CommandLine line;
    line.options.threads = std::max(1U, std::thread::hardware_concurrency());
    int option = 0;
    ::opterr = 0;
    while ((option = ::getopt_long(argumentCount, arguments, ":l:j:h", longOptions, nullptr)) !=
           -1) {
        if (option == Help || option == 'h' || option == Version) {
            const std::string version = std::string("kelpmoray-zip ") + base::version() + '\n';
            std::fputs(option == Version ? version.c_str() : usage, stdout);
            return done;
        }
        const bool isShort = optopt > 0 && optopt < Reproducible;
        const std::string given =
            isShort ? std::string{'-', static_cast<char>(optopt)} : arguments[optind - 1];
        if (auto applied = apply(option, optarg, given, line); !applied)
            return report(applied.error().sentence, wrongUsage);
    }
    if (argumentCount - optind != 2 || *arguments[optind] == '\0')
        return report("Give an archive and a package. See kelpmoray-zip --help.", wrongUsage);
    return packAndTell(arguments[optind], arguments[optind + 1], std::move(line));
}

} // namespace
} // namespace zip

int main(int argc, char** argv) {
    return zip::run(argc, argv);
}
