#ifndef TESTS_HOST_SYSLOG_LINES_H_
#define TESTS_HOST_SYSLOG_LINES_H_

#include <cstdarg>
#include <cstdio>
#include <string>

// Stands in for the C library's log in one source of a test program, so that tests see the lines: each comes
// to OnSyslogLine, which that source has, as "PRIORITY TEXT".
namespace qdt::host {

void OnSyslogLine(const std::string &line);

inline void TakeSyslog(int priority, const char *format, va_list arguments) {
  char line[512];
  std::vsnprintf(line, sizeof(line), format, arguments);
  OnSyslogLine(std::to_string(priority) + " " + line);
}

}  // namespace qdt::host

extern "C" void syslog(int priority, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  qdt::host::TakeSyslog(priority, format, arguments);
  va_end(arguments);
}

// What syslog is called in programs that are built to check formats (_FORTIFY_SOURCE), as those of packages
// are.
extern "C" void __syslog_chk(int priority, int, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  qdt::host::TakeSyslog(priority, format, arguments);
  va_end(arguments);
}

#endif  // TESTS_HOST_SYSLOG_LINES_H_
