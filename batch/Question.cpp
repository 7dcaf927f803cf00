#include "batch/Question.h"

#include "core/Text.h"

#include <iostream>

namespace {

/// Whether `line` is the word or its first letter.
bool chooses(std::string_view line, std::string_view word) {
    return equalsIgnoringCase(line, word) || equalsIgnoringCase(line, word.substr(0, 1));
}

} // namespace

Confirmation::Answer ask(const std::string& folder, bool& doNotCodesign, std::istream& in,
                         std::ostream& out) {
    using Confirmation::Answer;
    out << Confirmation::message << '\n' << folder << '\n';
    while (true) {
        out << "  [P] " << Confirmation::process << "   [S] " << Confirmation::skip
            << "   [Return] " << Confirmation::stop << "   [D] [" << (doNotCodesign ? 'x' : ' ')
            << "] " << Confirmation::doNotCodesign << " > " << std::flush;
        std::string line;
        if (!std::getline(in, line))
            out << '\n';
        const std::string_view choice = trimmed(line);
        if (choice.empty() || equalsIgnoringCase(choice, Confirmation::stop))
            return Answer::Stop;
        if (chooses(choice, Confirmation::process))
            return Answer::Process;
        if (chooses(choice, Confirmation::skip))
            return Answer::Skip;
        if (chooses(choice, Confirmation::doNotCodesign))
            doNotCodesign = !doNotCodesign;
        else
            out << "  Type P, S or D, or just Return.\n";
    }
}
