/* A C program over libqdt_util.a on the example's platform: asks for the bridge that it has, prints the
 * answer, and fails when it is not the one expected. Every public header is plain C. */
#define main RunExample
#include "../../examples/platform/platform.c"
#undef main

#include <stdio.h>
#include <string.h>

#include "qdt/aging.h"
#include "qdt/api.h"
#include "qdt/cli.h"
#include "qdt/oma.h"
#include "qdt/pmu.h"
#include "qdt/sched_trace.h"
#include "qdt/server_map.h"
#include "qdt/session.h"
#include "qdt/stats.h"
#include "qdt/tables.h"
#include "qdt/trace.h"

static const char kExpected[] =
    "------------------------------\n"
    "  BrId         :  7\n"
    "  BrIfIndex    :  4094\n"
    "  VlanFilter   :  1\n"
    "  MacLimitEn   :  0\n"
    "  MacAgeTime   :  300\n"
    "  MacLimitNum  :  1024\n"
    "  CurMacNum    :  12\n"
    "------------------------------";

static char g_answer[QDT_OUTPUT_CAPACITY];

int main(void) {
  char *words[] = {"diag", "search", "nqpTable", "9", "0", "7", "0", "0"};
  OutputBuffer out = {g_answer, 0};
  const int32_t length = VrxDiagCmdRun(&out, sizeof(words) / sizeof(words[0]), words);
  puts(g_answer);
  if (length == (int32_t)strlen(kExpected) && strcmp(g_answer, kExpected) == 0) return 0;
  fprintf(stderr, "expected %zu bytes:\n%s\n", strlen(kExpected), kExpected);
  return 1;
}
