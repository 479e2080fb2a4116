/// askpass: sudo's dialog for the password (sudo(8), -A). Writes the password and a line break to standard
/// output and ends with 0, or ends with 1 and nothing written when the dialog is cancelled or there is no
/// display. The first argument is sudo's own prompt, "[sudo] password for alice: ", which tells whose
/// password is wanted. When sudo asks with the same prompt again, the dialog says that the password was not
/// accepted (EarlierAnswer.h).
///
/// The password is never logged and never shown, lies in memory that is wiped, and goes to sudo alone. Memory
/// that the toolkit gives back is overwritten too.

#include <pwd.h>
#include <unistd.h>

#include <QApplication>
#include <QDialog>
#include <QPushButton>
#include <optional>
#include <string>

#include "ui/window/LogoView.h"
#include "ui/window/StartUpMessages.h"
#include "ui/window/askpass/EarlierAnswer.h"
#include "ui_Askpass.h"

namespace window {
namespace {

/// Whose password a prompt asks for; one that does not tell means the account that we are.
QString accountIn(const QString& prompt) {
  const QString marker = QStringLiteral("password for ");
  const auto at = prompt.indexOf(marker);
  QString named = at < 0 ? QString() : prompt.mid(at + marker.size()).section(u':', 0, 0).trimmed();
  if (!named.isEmpty()) return named;
  const passwd* const account = ::getpwuid(::getuid());  // NOLINT(concurrency-mt-unsafe): the only thread
  return account == nullptr ? QString() : QString::fromLocal8Bit(account->pw_name);
}

class AskpassDialog : public QDialog {
 public:
  explicit AskpassDialog(const QString& prompt) : prompt_(prompt.toStdString()) {
    ui_.setupUi(this);
    QFont bold = ui_.message->font();
    bold.setBold(true);
    ui_.message->setFont(bold);
    const QString text = explanation(accountIn(prompt), wasAnswered(STDERR_FILENO, prompt_));
    ui_.explanation->setText(text);
    ui_.password->setAccessibleDescription(text);
    setWindowFlag(Qt::WindowStaysOnTopHint);
    for (QAbstractButton* const button : ui_.buttons->buttons()) button->setIcon({});
    ui_.password->setFocus();
    connect(ui_.buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(ui_.buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  }

  /// Runs it; answers the program's exit status.
  int ask() {
    show();
    raise();
    activateWindow();
    noteQuestion(STDERR_FILENO);
    const bool isGiven = exec() == Accepted && give();
    ui_.password->secret().clear();
    return isGiven ? 0 : 1;
  }

 private:
  static QString explanation(const QString& account, bool isSecondTry) {
    const QString request = account.isEmpty() ? tr("Enter your password to allow this.")
                                              : tr("Enter the password of “%1” to allow this.").arg(account);
    return isSecondTry ? tr("The password was not accepted. Try again.") + u'\n' + request : request;
  }
  bool give() {
    noteAnswer(STDERR_FILENO, prompt_);
    return ui_.password->secret().writeLine(STDOUT_FILENO);
  }

  std::string prompt_;
  Ui::Askpass ui_;
};

int run(int argc, char** argv) {
  refuseToBeLookedAt();
  std::optional<StartUpMessages> messages(std::in_place);
  QApplication toolkit(argc, argv);
  messages.reset();
  QApplication::setApplicationName(QStringLiteral("Quillmend"));
  QApplication::setDesktopFileName(QStringLiteral("com.vordenworks.Quillmend"));
  QApplication::setWindowIcon(applicationIcon());
  describePasswordFields();
  const QStringList arguments = QApplication::arguments();
  return AskpassDialog(arguments.value(1)).ask();
}

}  // namespace
}  // namespace window

int main(int argc, char* argv[]) {
  window::overwriteFreedMemory(argv);
  return window::run(argc, argv);
}
