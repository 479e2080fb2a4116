// After Apple's documentation: the greatest length of a path, by its old name.
#pragma once

#include <limits.h>
#include <sys/types.h>

#define MAXPATHLEN PATH_MAX
