#include "platform/posix/Pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/posix/ChildCalls.h"

namespace platform {

UniqueDescriptor raisedDescriptor(UniqueDescriptor descriptor) {
  if (!descriptor || descriptor.get() > STDERR_FILENO) return descriptor;
  return UniqueDescriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
  if (!openPipe(ends)) return {};
  Pipe pipe{raisedDescriptor(UniqueDescriptor(ends[0])), raisedDescriptor(UniqueDescriptor(ends[1]))};
  if (!pipe.reading || !pipe.writing) return {};
  return pipe;
}

}  // namespace platform
