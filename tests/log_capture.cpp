// LogCapture is defined in its header; this unit stays for the build files that list it.
#include "log_capture.h"
