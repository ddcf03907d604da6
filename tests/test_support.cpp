// The shared helpers are defined in test_support.h; this unit stays for the build file.
#include "test_support.h"
