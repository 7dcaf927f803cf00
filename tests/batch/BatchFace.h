#pragma once

#include "batch/Batch.h"
#include "core/ShellRunners.h"
#include "core/Text.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <sstream>

#include <gmock/gmock.h>

/// Runs the terminal face over real scripts and files, with a person's typing as input.
struct BatchFace : testing::Test {
    BatchFace() {
        folder.makeApplication("apps/A.app");
        folder.makeApplication("apps/Bß 2.app");
        folder.makeApplication("more/C.app");
    }
    ExitStatus run(const std::vector<std::string>& arguments, const std::string& typed = "") {
        std::istringstream in(typed);
        out.str("");
        err.str("");
        return Batch({.bundle = bundle,
                      .tools = tools,
                      .in = in,
                      .out = out,
                      .err = err,
                      .outIsTerminal = outIsTerminal,
                      .hasColour = outIsTerminal,
                      .recordFolder = folder.path("runs"),
                      .interrupted = interrupted},
                     *parseOptions(arguments))
            .run();
    }
    /// From now on `body` runs in the place of that script.
    void useScript(const std::string& name, const std::string& body) {
        bundle.resourcesFolder = resources.path();
        resources.makeExecutable(name, "#!/bin/sh\n" + body + "\n");
    }
    /// The identity tool is a stand-in that lists Jo and Kim.
    void useIdentities(const TemporaryFolder& bin) {
        tools.security = bin.makeExecutable(
            "security", "#!/bin/sh\ncat <<'END'\n  1) " + jo + " \"Kind A: Jo (X1)\"\n  2) " +
                            std::string(40, 'C') + " \"iPhone Developer: Jo (X1)\"\n  3) " + kim +
                            " \"Kind B: Kim (Y2)\"\n     3 valid identities found\nEND\n");
    }
    [[nodiscard]] bool zipped(const std::string& name) const {
        return std::filesystem::exists(folder.path(name));
    }

    const std::string jo = std::string(40, 'A');
    const std::string kim = std::string(40, 'B');
    TemporaryFolder folder;
    TemporaryFolder resources{TemporaryFolder::withoutBlank};
    LogCapture log;
    MainBundle bundle = MainBundle::ofExecutable(KELPMORAY_BIN_DIR "/kelpmoray-batch");
    ToolPaths tools{.security = "/nonexistent/security", .awk = "awk"};
    std::ostringstream out;
    std::ostringstream err;
    bool outIsTerminal = false;
    std::function<bool()> interrupted = [] { return false; };
};
