#pragma once

#include "platform/posix/DescriptorLimit.h"
#include "platform/posix/IndependentProcess.h"
#include "platform/posix/Report.h"

/// What each tool has of the programs that root runs.
namespace helpers {

using foundation::errorWithReason;
using platform::affordableDescriptors;
using platform::escaped;
using platform::ExitStatus;
using platform::Report;
using platform::stopRequested;

}  // namespace helpers
