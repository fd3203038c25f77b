#ifndef TESTS_PRECOMPILED_H_
#define TESTS_PRECOMPILED_H_

// What test sources find parsed already. It takes the place of no #include: each source names what it uses,
// so that all compile with CMAKE_DISABLE_PRECOMPILE_HEADERS as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#endif  // TESTS_PRECOMPILED_H_
