#ifndef TESTS_UNIT_AGING_GLOBALS_H_
#define TESTS_UNIT_AGING_GLOBALS_H_

#include <cstring>

#include "qdt/aging.h"

namespace qdt::test {

// Holds the aging times' globals as they are when the library is loaded, at its beginning and at its end: a
// member of every fixture whose tests touch them.
class AgingGlobals {
 public:
  AgingGlobals() { Reset(); }
  ~AgingGlobals() { Reset(); }
  AgingGlobals(const AgingGlobals &) = delete;
  AgingGlobals &operator=(const AgingGlobals &) = delete;

 private:
  static void Reset() {
    std::memset(g_qdtProtoTtlDefault, 0, sizeof(g_qdtProtoTtlDefault));
    std::memset(g_qdtAppTtlDefault, 0, sizeof(g_qdtAppTtlDefault));
    g_qdtProtoTtlCur = nullptr;
    g_qdtAppTtlCur = nullptr;
    g_sessInfoInitCnt = 0;
  }
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_AGING_GLOBALS_H_
