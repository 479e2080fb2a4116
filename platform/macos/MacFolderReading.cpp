#include "platform/posix/FolderReading.h"

namespace platform {

int readFolder(int folder, const VisitEntry& visit) {
  return readFolderByStream(folder, visit);
}

}  // namespace platform
