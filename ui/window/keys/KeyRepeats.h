#pragma once

#include <QKeyEvent>

/// Tells the presses of a key that is held from those of a finger. The toolkit marks a repetition only when
/// it sees it coming: it goes by the release before it, and takes that for a real one when the press is not
/// there yet. The display gives both the same time.
class KeyRepeats {
 public:
  void noteRelease(const QKeyEvent& event) {
    code_ = event.nativeScanCode();
    time_ = event.timestamp();
  }
  [[nodiscard]] bool isRepeat(const QKeyEvent& event) const {
    const bool isSameMoment = time_ != 0 && event.timestamp() - time_ <= 1;
    return event.isAutoRepeat() || (isSameMoment && event.nativeScanCode() == code_);
  }

 private:
  quint32 code_ = 0;
  quint64 time_ = 0;  ///< milliseconds of the display's
};
