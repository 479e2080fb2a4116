#include "platform/posix/WakePipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/foundation/Exception.h"
#include "platform/foundation/Result.h"

namespace platform {

WakePipe::WakePipe() : pipe_(makePipe()) {
  if (!pipe_.reading) {
    throw foundation::Exception(foundation::kGenericException,
                                foundation::systemError(errno, "pipe").localizedDescription());
  }
  for (const UniqueDescriptor* const end : {&pipe_.reading, &pipe_.writing}) {
    ::fcntl(end->get(), F_SETFL, ::fcntl(end->get(), F_GETFL) | O_NONBLOCK);
  }
}

void WakePipe::raise() const {
  const int before = errno;
  const char byte = 1;
  // A full pipe is raised already.
  while (::write(pipe_.writing.get(), &byte, 1) < 0 && errno == EINTR) {
  }
  errno = before;
}

void WakePipe::lower() const {
  std::array<char, 64> bytes{};
  while (true) {
    const ssize_t length = ::read(pipe_.reading.get(), bytes.data(), bytes.size());
    if (length <= 0 && errno != EINTR) return;
    if (length == 0) return;
  }
}

}  // namespace platform
