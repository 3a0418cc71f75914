/**
 * @file
 * One log call for the whole library: fills in module, unit and function, so that a call site names only the
 * level and what happened. A source defines its unit once: `constexpr char k_unit[] = "src/io_pool";`
 */
#ifndef VX_LOG_H
#define VX_LOG_H

#include "vision_log.h"

/** Logs under the name of the function it stands in. */
#define VX_LOG(level, ...) VX_LOG_AS(__func__, level, __VA_ARGS__)

/** Logs under another function's name: for helpers that several public functions share. */
#define VX_LOG_AS(function, level, ...)                                                                      \
    ControlLog(MODULE_MSG_ROUTE, VISION_LOG_LEVEL_##level, k_unit, function, __LINE__, __VA_ARGS__)

#endif
