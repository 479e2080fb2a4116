#pragma once

#include <bits/alltypes.h>
