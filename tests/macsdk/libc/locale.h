// A Mac declares newlocale(3) in xlocale.h alone; the rest is musl's.
#pragma once

#define newlocale in_xlocale_alone
#include_next <locale.h>
#undef newlocale
