/**
 * @file
 * The log interface of the vision computer: every diagnostic of every module is one call of ControlLog. On
 * the aircraft the calls end in the closed log library; on a desk in libmsglog.so, which writes lines to
 * standard error. A program may also define both functions itself: the loader then prefers its definitions.
 *
 *     ControlLogInit("soa");
 *     ControlLog(MODULE_VEXA_VISION, VISION_LOG_LEVEL_INFO, "src/soa", __func__, __LINE__, "up, rate %d\n",
 * rate);
 */
#ifndef VISION_LOG_H
#define VISION_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Whose message it is. */
enum vision_log_module {
    MODULE_LOG = 0,         /**< the log library itself */
    MODULE_VEXA_VISION = 1, /**< a vision process */
    MODULE_MSG_ROUTE = 2    /**< the message library */
};

/** How much it matters; lower is worse. */
enum vision_log_level {
    VISION_LOG_LEVEL_EMERGENCY = 0,
    VISION_LOG_LEVEL_ERROR = 1, /**< something was refused or failed */
    VISION_LOG_LEVEL_WARN = 2,  /**< something was dropped or cut */
    VISION_LOG_LEVEL_INFO = 3,  /**< progress */
    VISION_LOG_LEVEL_DBG = 4
};

/**
 * Names the process in the log. Called once at start-up; lines written before it carry no name.
 *
 * @param name  NUL-terminated; copied, at most 15 characters of it are kept. NULL is the empty name
 * @par Threads Any thread.
 */
void ControlLogInit(const char *name);

/**
 * Writes one message.
 *
 * @param module    a vision_log_module
 * @param level     a vision_log_level
 * @param file      source unit, such as "src/io_pool"
 * @param function  name of the function that logs
 * @param line      its line
 * @param format    as for printf; usually ends with a line feed, which the writer does not repeat
 * @par Threads     Any thread; lines of several threads do not mix. The message library calls it with locks
 * held: a definition of your own must not call the message library, and should return soon.
 * @par Errors      None are reported: a message that cannot be written is lost.
 */
void ControlLog(int module, int level, const char *file, const char *function, int line, const char *format,
                ...) __attribute__((format(printf, 6, 7)));

#ifdef __cplusplus
}
#endif

#endif
