// xlocale(3): the headers whose functions take a locale, as far as libc++'s headers name them.
#pragma once

#include <ctype.h>
#include <locale.h>
#include <runetype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <wchar.h>
#include <wctype.h>

#ifdef __cplusplus
extern "C" {
#endif
locale_t newlocale(int, const char*, locale_t);
#ifdef __cplusplus
}
#endif
