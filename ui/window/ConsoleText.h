#pragma once

#include <QString>
#include <string>

/// What a text is made into before a console shows it. A character is a UTF-16 unit; there are as many of
/// them behind these functions as before.
namespace window {

/// The text in characters, with pictures in the places of control characters other than tabs and line feeds,
/// and U+FFFD in those of bytes that are not UTF-8, of further line ends, and of what a document takes for
/// the ends of its frames. A byte order mark is a character like others, at the text's start too.
[[nodiscard]] QString lettersOf(const std::string& text);

/// The marks of the Unicode Bidirectional Algorithm (UAX #9) that change the order in which a line's other
/// characters are shown, and are not seen themselves. With them "gpj.exe" can look like "exe.jpg".
[[nodiscard]] bool isDirectionMark(QChar letter);

/// How much of a line to lay out at a time, where it is longer than that: up to a blank if there is one in
/// its second half, never within a character and its accents. REQUIRES 1 < most < line.size(). At least 1.
[[nodiscard]] qsizetype pieceLength(QStringView line, qsizetype most);

}  // namespace window
