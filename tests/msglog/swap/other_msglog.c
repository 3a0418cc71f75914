/* Another log library, which writes to standard output in a form of its own. */
#include <stdarg.h>
#include <stdio.h>

void ControlLogInit(const char *name);
void ControlLog(int module, int level, const char *file, const char *function, int line, const char *format,
                ...);

void ControlLogInit(const char *name) {
    printf("other library for %s\n", name);
}

void ControlLog(int module, int level, const char *file, const char *function, int line, const char *format,
                ...) {
    va_list args;
    va_start(args, format);
    printf("[%d|%d|%s|%s|%d] ", module, level, file, function, line);
    vprintf(format, args);
    va_end(args);
}
