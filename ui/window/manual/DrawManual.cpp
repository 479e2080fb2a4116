/// drawmanual: sets the user manual from its source text, with pictures of the real window in it.
///
///     drawmanual Manual.md manual.pdf version
///
/// The source is Markdown as QTextDocument reads it (GitHub's dialect). "@VERSION@" and "@SITE@" in it are
/// replaced, and an image at the address "picture:empty", "picture:repairing" or "picture:errors" is the main
/// window at that moment. Needs no display. Status 1 with a line on standard error when something is wrong.

#include <QApplication>
#include <QFile>
#include <QFontInfo>
#include <QPageSize>
#include <QPdfWriter>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextTable>
#include <cstdio>

#include "platform/foundation/Identifiers.h"
#include "ui/AttributedString.h"
#include "ui/window/MainWindow.h"

namespace {

/// The owner of a window that is only looked at.
class StillOwner : public outlets::InterfaceOwner {
 public:
  bool interfaceDidLoad(const outlets::Connections& /*connections*/) override { return true; }
  bool respondsToAction(const std::string& /*action*/) override { return true; }
  void performAction(const std::string& /*action*/, outlets::Sender* /*sender*/) override {}
  void openAddress(const std::string& /*address*/) override {}
  bool isRepairing() override { return false; }
  void endRepairAndTerminate() override {}
  bool shouldTerminateAfterLastWindowClosed() override { return true; }
  void applicationWillTerminate() override {}
  std::string windowFrame() override { return ""; }
  void setWindowFrame(const std::string& /*frame*/) override {}
  outlets::ShortcutKeyOwner* shortcutKeys() override { return nullptr; }
  std::optional<std::uint16_t> virtualKeyCode(std::uint32_t /*scanCode*/) override { return std::nullopt; }
  std::string version() override { return ""; }
};

/// The main window, filled as a repair fills it.
class Picture {
 public:
  Picture() {
    for (outlets::CheckBox* const box :
         {parts_.trashPrefs, parts_.resetQmasterCheck, parts_.resetLayoutCheck}) {
      box->setState(outlets::State::on);
    }
    window_.resize(kSize);
    window_.show();
  }
  ~Picture() { window_.setMayClose(); }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  void addLines(const std::vector<const char*>& lines) {
    for (const char* const line : lines)
      add(line, line == lines.front() && console().length() == 0, Color::black);
  }
  void addError(const char* line) { add(line, false, Color::red); }
  void addLink() {
    console().insertText("\n\n", {});
    console().insertAttributedText(AttributedString::hyperlinkFromString(
        "Get Stellate Toolbox for even more features", identifiers::kWebSite));
  }
  void showRepair(const char* stage, std::size_t done, std::size_t total) {
    parts_.repairButton->setEnabled(false);
    parts_.repairProgress->showStage(stage, done, total);
  }

  /// Twice as sharp as a screen.
  [[nodiscard]] QImage taken() {
    QCoreApplication::processEvents();
    constexpr double kDensity = 2;
    QImage image(window_.size() * kDensity, QImage::Format_RGB32);
    image.setDevicePixelRatio(kDensity);
    window_.render(&image);
    return image;
  }

 private:
  using Color = outlets::Color;

  outlets::TextView& console() { return *parts_.errorText; }
  void add(const char* line, bool isBold, Color color) {
    if (console().length() > 0) console().insertText("\n\n", {});
    const std::size_t start = console().length();
    console().insertText(line, {.isBold = isBold});
    console().setTextColor(color, {start, console().length() - start});
    console().scrollRangeToVisible({start, console().length() - start});
  }

  static constexpr QSize kSize{560, 420};

  StillOwner owner_;
  window::MainWindow window_{owner_};
  outlets::Connections parts_ = window_.connections();
};

QImage emptyWindow() {
  Picture picture;
  picture.addLink();
  return picture.taken();
}

QImage repairingWindow() {
  Picture picture;
  picture.addLines({"Starting repair...", "Detected Compressor 3.5.x.", "Stopping Qmaster...",
                    "Trashing preferences...", "Resetting window layout...", "Checking file permissions...",
                    "Removing caches..."});
  picture.showRepair("Removing caches", 5, 10);
  return picture.taken();
}

QImage windowWithErrors() {
  Picture picture;
  picture.addLines({"Starting repair...", "Detected Compressor 3.5.x.", "Checking file permissions..."});
  picture.addError(
      "'/usr/sbin/qmasterca' does not exist. You are advised to reinstall Compressor / Qmaster.");
  picture.addLines({"Removing caches...", "Removing temporary spool data...", "Clearing history...",
                    "Checking computer name...", "Attempting to start Qmaster...",
                    "Relaunching menu bar icon..."});
  picture.addError("Processing complete. Errors were found during processing.");
  return picture.taken();
}

void addPictures(QTextDocument& manual) {
  const auto add = [&manual](const char* address, const QImage& picture) {
    manual.addResource(QTextDocument::ImageResource, QUrl(QString::fromLatin1(address)), picture);
  };
  add("picture:empty", emptyWindow());
  add("picture:repairing", repairingWindow());
  add("picture:errors", windowWithErrors());
}

constexpr double kGap = 10;
constexpr double kCommandPoints = 8;

/// Tables as wide as the page, with thin lines.
void dressTables(QTextDocument& manual) {
  for (QTextFrame* const frame : manual.rootFrame()->childFrames()) {
    auto* const table = qobject_cast<QTextTable*>(frame);
    if (table == nullptr) continue;
    QTextTableFormat format = table->format();
    format.setWidth(QTextLength(QTextLength::PercentageLength, 100));
    format.setBorderBrush(QColor(0xBB, 0xBB, 0xBB));
    format.setBorderStyle(QTextFrameFormat::BorderStyle_Solid);
    format.setBorder(1);
    format.setBorderCollapse(true);
    format.setCellPadding(4);
    format.setCellSpacing(0);
    format.setBottomMargin(kGap);
    table->setFormat(format);
  }
}

bool isCommand(const QTextBlock& block) {
  return !block.begin().atEnd() && QFontInfo(block.begin().fragment().charFormat().font()).fixedPitch();
}

/// Air above headings and below pictures; commands small enough to stay on one line.
void dressLines(QTextDocument& manual) {
  for (QTextBlock block = manual.begin(); block.isValid(); block = block.next()) {
    QTextCursor cursor(block);
    cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    QTextBlockFormat line;
    if (block.blockFormat().headingLevel() > 1) {
      line.setTopMargin(2 * kGap);
      line.setBottomMargin(kGap / 2);
    }
    if (isCommand(block)) {
      line.setBackground(QColor(0xF3, 0xF3, 0xF3));
      QTextCharFormat small;
      small.setFontPointSize(kCommandPoints);
      cursor.mergeCharFormat(small);
    }
    cursor.mergeBlockFormat(line);
  }
}

bool complain(const QString& what) {
  std::fprintf(stderr, "drawmanual: cannot use %s\n", qPrintable(what));
  return false;
}

bool set(const QStringList& arguments) {
  QFile source(arguments[1]);
  if (!source.open(QIODevice::ReadOnly)) return complain(arguments[1]);
  QString text = QString::fromUtf8(source.readAll());
  text.replace(QStringLiteral("@VERSION@"), arguments[3])
      .replace(QStringLiteral("@SITE@"), QString::fromUtf8(identifiers::kWebSite));
  QTextDocument manual;
  QFont font(QStringLiteral("DejaVu Sans"), 10);
  font.setLetterSpacing(QFont::AbsoluteSpacing, 0.05);  // no ligatures: "fix" is to be found by a search
  manual.setDefaultFont(font);
  manual.setMarkdown(text, QTextDocument::MarkdownDialectGitHub);
  addPictures(manual);
  dressTables(manual);
  dressLines(manual);
  QFile::remove(arguments[2]);
  QPdfWriter writer(arguments[2]);
  writer.setPageSize(QPageSize(QPageSize::A4));
  writer.setTitle(QStringLiteral("Quillmend User Manual"));
  manual.print(&writer);
  return QFile::exists(arguments[2]) || complain(arguments[2]);
}

}  // namespace

int main(int argc, char* argv[]) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication toolkit(argc, argv);
  const QStringList arguments = QCoreApplication::arguments();
  if (arguments.size() != 4) {
    std::fputs("usage: drawmanual Manual.md manual.pdf version\n", stderr);
    return 64;
  }
  return set(arguments) ? 0 : 1;
}
