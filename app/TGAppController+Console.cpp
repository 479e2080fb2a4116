#include "app/TGAppController.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/SystemConsole.h"
#include "platform/foundation/Text.h"

using foundation::stringWithFormat;

namespace {

constexpr double kConsoleFontSize = 12.0;
constexpr const char* kSeparator = "\n\n";

}  // namespace

void TGAppController::insertText(const std::string& text) {
  insertErrorText(text, outlets::Color::black, Bold::no);
}

void TGAppController::insertBoldText(const std::string& text) {
  insertErrorText(text, outlets::Color::black, Bold::yes);
}

void TGAppController::insertErrorText(const std::string& text) {
  insertErrorText(text, outlets::Color::red, Bold::no);
}

void TGAppController::insertBoldErrorText(const std::string& text) {
  // Not bold, on purpose: red is emphasis enough, and all errors look alike.
  insertErrorText(text, outlets::Color::red, Bold::no);
}

void TGAppController::insertErrorText(const std::string& text, outlets::Color color, Bold bold) {
  guarded("-[TGAppController insertErrorText:color:bold:]", [&] {
    TGLog::appendLog("%@", text);
    if (hasGUI_) {
      insertIntoConsoleView(text, color, bold);
    } else {
      NSLog("%@", text);
      appendToOutput(text);
    }
  });
}

void TGAppController::insertIntoConsoleView(const std::string& text, outlets::Color color, Bold bold) {
  if (errorText == nullptr) return;
  const outlets::Font font{.isBold = bold == Bold::yes, .size = kConsoleFontSize};
  const std::size_t length = errorText->length();
  outlets::Range added{length, foundation::characterCount(text)};
  errorText->setSelectedRange({length, 0});
  if (length > 0) {
    errorText->insertText(kSeparator, font);
    added.location = length + 2;
  }
  errorText->insertText(text, font);
  errorText->setTextColor(color, added);
  errorText->scrollRangeToVisible(added);
  errorText->setNeedsDisplay();
}

void TGAppController::appendToOutput(const std::string& text) {
  std::string output = outputString_.value_or("");
  if (!output.empty()) output += kSeparator;
  outputString_ = stringWithFormat("%@%@", output, text);
}

void TGAppController::clearErrorText() {
  if (errorText != nullptr) errorText->setString("");
  if (!hasGUI_ && outputString_) outputString_ = "";
}

void TGAppController::showAlert(const std::string& text) {
  if (windowMain != nullptr) windowMain->beginAlertSheet("Processing complete", stringWithFormat(text));
}
