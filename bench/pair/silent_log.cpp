// In place of the log library: takes the lines and writes none. What a log library costs is not measured
// here; bench_pair_logging, which is linked without this, shows it.
#include "vision_log.h"

extern "C" void ControlLogInit(const char * /*name*/) {
}

extern "C" void ControlLog(int /*module*/, int /*level*/, const char * /*file*/, const char * /*function*/,
                           int /*line*/, const char * /*format*/, ...) {
}
