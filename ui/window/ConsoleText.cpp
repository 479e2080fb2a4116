#include "ui/window/ConsoleText.h"

#include <QStringConverter>
#include <algorithm>

namespace window {
namespace {

/// The picture of a control character, or the character itself.
QChar picture(QChar letter) {
  const char16_t unit = letter.unicode();
  if (unit == u'\n' || unit == u'\t') return letter;
  if (unit < 0x20) return QChar(static_cast<char16_t>(0x2400 + unit));
  if (unit == 0x7F) return QChar(u'\u2421');
  const bool isUnfit =
      (unit > 0x7F && unit < 0xA0) || unit == 0x2028 || unit == 0x2029 || (unit >= 0xFDD0 && unit <= 0xFDEF);
  return isUnfit ? QChar(QChar::ReplacementCharacter) : letter;
}

bool isBreakable(QChar letter) {
  return letter.isSpace() && letter != QChar(QChar::Nbsp);
}

bool isWithinACharacter(QStringView line, qsizetype position) {
  return line[position].isLowSurrogate() || line[position].isMark();
}

}  // namespace

QString lettersOf(const std::string& text) {
  using Flag = QStringConverter::Flag;
  QStringDecoder decoder(QStringConverter::Utf8, Flag::Stateless | Flag::ConvertInitialBom);
  QString letters = decoder(QByteArrayView(text.data(), static_cast<qsizetype>(text.size())));
  std::transform(letters.cbegin(), letters.cend(), letters.begin(), picture);
  return letters;
}

bool isDirectionMark(QChar letter) {
  const char16_t unit = letter.unicode();
  return unit == 0x061C || unit == 0x200E || unit == 0x200F || (unit >= 0x202A && unit <= 0x202E) ||
         (unit >= 0x2066 && unit <= 0x2069);
}

qsizetype pieceLength(QStringView line, qsizetype most) {
  for (qsizetype length = most; length > most / 2; --length) {
    if (isBreakable(line[length - 1])) return length;
  }
  qsizetype length = most;
  while (length > most / 2 && isWithinACharacter(line, length)) --length;
  return length > most / 2 ? length : most;
}

}  // namespace window
