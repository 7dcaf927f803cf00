#pragma once

/// A person's Ctrl-C, a hang-up, or a build machine's request to end. What has begun is ended in
/// order and summed up; another signal, a fifth of a second later or more, ends the program at
/// once.
namespace Interruption {

/// From now on these signals are noted. The calling thread is the one that reads what a person
/// types: a signal ends its reading. A signal that is ignored from the start stays so.
void watch();

/// Whether one has come. Any thread.
[[nodiscard]] bool came();

} // namespace Interruption
