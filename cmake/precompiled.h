#ifndef CMAKE_PRECOMPILED_H_
#define CMAKE_PRECOMPILED_H_

// What the sources of the host platform and the tools find parsed already. It takes the place of no #include:
// each source names what it uses, so that all compile with CMAKE_DISABLE_PRECOMPILE_HEADERS as well.
#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#endif  // CMAKE_PRECOMPILED_H_
