#ifndef SRC_OM_COMMON_LOG_H_
#define SRC_OM_COMMON_LOG_H_

#include <syslog.h>

// The library's log: the system log, with the two priorities in use. Macros, so that the compiler checks
// formats.
#define QDT_LOG_ERROR(...) syslog(LOG_ERR, __VA_ARGS__)
#define QDT_LOG_INFO(...) syslog(LOG_INFO, __VA_ARGS__)

#endif  // SRC_OM_COMMON_LOG_H_
