#pragma once

#include <string_view>

namespace window {

/// What one askpass leaves for the next of the same sudo, which starts a new one each time that it asks
/// again. All of them have sudo's standard error; where Quillmend has started that sudo, it is a file in
/// memory without a name (memfd_create(2)), which ends with it. Lines of their own there, with neither the
/// password nor the prompt's words, say that a dialog asks and which prompt was answered: "askpass: asks",
/// "askpass: answered 123". Quillmend knows by them what of sudo's messages came before. A terminal, a pipe,
/// a file that has a name and one on a disk are left alone, and tell nothing.

/// Notes that a dialog is there.
void noteQuestion(int standardError);

/// Notes that a prompt is being answered. To be called before the answer is given: sudo may ask again at
/// once.
void noteAnswer(int standardError, std::string_view prompt);

/// The same prompt was answered before, so that answer was not taken. Another prompt, as for the second of
/// two things that are asked for, is no second try.
[[nodiscard]] bool wasAnswered(int standardError, std::string_view prompt);

}  // namespace window
