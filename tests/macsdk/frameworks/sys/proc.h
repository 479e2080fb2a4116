// The states of a process, as libproc tells them.
#pragma once

#define SSTOP 4
#define SZOMB 5
