// What a source of the application may include, and, when HEADER names one, what it must not.
#include <vdo-stream.h>

#include "application.h"

#ifdef HEADER
#include HEADER
#endif
