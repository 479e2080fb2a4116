#include "ui/window/StartUpMessages.h"

#include <unistd.h>

#include <QtGlobal>
#include <string>

namespace window {
namespace {

/// The first complaint is the cause, those behind it are consequences.
std::string& firstComplaint() {
  static std::string text;
  return text;
}

[[noreturn]] void endWith(std::string reason) {
  for (char& letter : reason) {
    if (letter == '\n') letter = ' ';
  }
  const std::string line = "Quillmend: no display: " + reason + "\n";
  static_cast<void>(::write(STDERR_FILENO, line.data(), line.size()));
  ::_exit(1);  // nothing has begun that would have to be ended
}

void keep(QtMsgType type, const QMessageLogContext& /*context*/, const QString& message) {
  std::string& complaint = firstComplaint();
  if (complaint.empty() && type != QtDebugMsg && type != QtInfoMsg) complaint = message.toStdString();
  if (type == QtFatalMsg) endWith(complaint);
}

}  // namespace

StartUpMessages::StartUpMessages() {
  firstComplaint().clear();
  qInstallMessageHandler(keep);
}

StartUpMessages::~StartUpMessages() {
  qInstallMessageHandler(nullptr);
}

}  // namespace window
