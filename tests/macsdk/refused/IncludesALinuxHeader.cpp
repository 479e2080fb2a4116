#include <sys/prctl.h>
