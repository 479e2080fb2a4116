#pragma once

#include <chrono>
#include <optional>

#include "platform/MainThread.h"

namespace platform {

/// Waits until a descriptor can be read or is at its end, at most that long; without a limit as long as it
/// takes, because a dialog may stand for minutes and a program be silent for hours. On the main thread its
/// queued work is served meanwhile, so that the program stays alive; any other thread blocks, also through
/// signals that are handled. Answers whether the descriptor is readable.
///
/// -1 stands for no descriptor: REQUIRES a limit.
bool waitUntilReadable(MainThread& mainThread, int descriptor,
                       std::optional<std::chrono::milliseconds> limit = std::nullopt);

}  // namespace platform
