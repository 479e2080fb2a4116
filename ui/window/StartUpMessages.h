#pragma once

#include <QString>

namespace window {

/// While it lives, the toolkit's messages are kept rather than printed, and a fatal one ends the process with
/// status 1 and one line on standard error, "Quillmend: no display: ...". The toolkit would abort, with a
/// page of advice for developers. One at a time.
class StartUpMessages {
 public:
  StartUpMessages();
  ~StartUpMessages();
  StartUpMessages(const StartUpMessages&) = delete;
  StartUpMessages& operator=(const StartUpMessages&) = delete;
};

}  // namespace window
