#include "host/layout/layout_files.h"

#include <algorithm>
#include <filesystem>

#include "host/base/host_error.h"
#include "host/base/text_file.h"
#include "host/layout/layout_reader.h"

namespace qdt::host {
namespace {

constexpr uint64_t kMaxLayoutFile = 4u << 20;

}  // namespace

Layout ReadLayouts(const std::vector<LayoutText> &files) {
  LayoutReader reader;
  for (const LayoutText &file : files) reader.ReadFile(YamlTree(std::string(file.file), file.text));
  return reader.Finish();
}

Layout ReadLayoutDirectory(const std::string &directory) {
  std::vector<std::string> paths;
  std::error_code error;
  for (const auto &entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.path().extension() == ".yaml") paths.push_back(entry.path().string());
  }
  if (error)
    throw HostError(directory + ": " + error.message() + " (name a readable directory of layout files)");
  std::sort(paths.begin(), paths.end());
  LayoutReader reader;
  for (const std::string &path : paths) reader.ReadFile(YamlTree(path, ReadYamlFile(path, kMaxLayoutFile)));
  return reader.Finish();
}

}  // namespace qdt::host
