/**
 * @file conf_debug.h
 * The plugin log with its levels, and the debug output file.
 *
 * The plugin runtime writes to /var/log/conf_plugin.log once econf_plugin_config_debug() has
 * switched it on; one line, ended by CR LF, is one write, so the lines of several processes never
 * mix. A file that has grown past 2 MiB is deleted before the next line.
 */
#ifndef CONF_DEBUG_H
#define CONF_DEBUG_H

#include "conf_def.h"

#ifdef __cplusplus
extern "C" {
#endif

/** How much a line matters; as a threshold, the last that is written. */
enum _conf_dbg_level {
    DBG_NULL = 0,
    DBG_CRIT = 1,
    DBG_ERROR = 2,
    DBG_WARN = 3,
    DBG_INFO = 4,
    DBG_DEBUG = 5,
    DBG_MSG = 6,
    DBG_ALL = 7 /**< as a threshold it admits every level; it is no message's level */
};

/** The word of each level from 0 to 6, as it stands in the log. */
CONF_API extern const char* const g_debug_desc[7];

/** The highest level that is written; set through econf_plugin_config_debug(). */
CONF_API extern int g_log_level;

/** Not 0 while the log is in use; set through econf_plugin_config_debug(). */
CONF_API extern int g_log_enable;

/**
 * Writes one line to the plugin log, if the log is in use and admits the level.
 *
 * The text holds at most 255 bytes: a longer one leaves the line's text empty. A null format
 * writes no line. Failures are silent, and errno is kept.
 *
 * @param level   DBG_NULL to DBG_MSG; nothing is written for another
 * @param format  printf's, without a line ending
 */
CONF_API void _conf_write_log(int level, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

/**
 * @return a file's size in bytes, LONG_MAX for one that no long can hold; -1 when the name is null
 *         or the file cannot be examined
 */
CONF_API long _conf_get_file_length(const char* file_name);

/**
 * Opens the debug output file, in place of one that is open, and readies its mutex.
 *
 * @param level     kept for callers of old; nothing reads it
 * @param filename  opened for appending; null just closes the file that is open
 * @return 0; -1 (reported to syslog) when the file cannot be opened or its mutex not be made, no
 *         file is open then
 */
CONF_API int conf_dbg_enable(int level, char* filename);

/** Closes the debug output file and ends its mutex; harmless when there is neither. */
CONF_API void conf_dbg_disable(void);

#ifdef __cplusplus
}
#endif

#endif
