// The older name of the runtime's functions.
#pragma once

#include <objc/runtime.h>
