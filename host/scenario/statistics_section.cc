#include "host/scenario/statistics_section.h"

#include <optional>

#include "host/base/host_error.h"
#include "host/layout/field.h"

namespace qdt::host {
namespace {

uint64_t ReadCount(const YamlTree &tree, const YamlNode &node, const std::string &what) {
  constexpr FieldRef kCounter{0, 8, FieldKind::kUnsigned, 0, 0};
  std::string problem = "not a number (write NUMBER, or [NUMBER, ...] with one for each core)";
  const std::optional<WideValue> count =
      node.IsScalar() ? ParseValue(kCounter, node.text, &problem) : std::nullopt;
  if (!count) tree.Fail(node.line, what + problem);
  return static_cast<uint64_t>(*count);
}

}  // namespace

std::vector<StatisticPreset> ReadStatistics(const YamlTree &tree, const YamlNode &section,
                                            const YamlNode &statistics, Mistakes *mistakes) {
  if (!statistics.IsMap() && !statistics.IsNull())
    tree.Fail(section.line, section.text + ": not a mapping (write NAME: NUMBER)");
  std::vector<StatisticPreset> presets;
  for (size_t i = 0; i < statistics.items.size(); i += 2) {
    const YamlNode &name = *statistics.items[i];
    const YamlNode &value = *statistics.items[i + 1];
    const std::string what = section.text + "." + name.text.substr(0, 64) + ": ";
    StatisticPreset preset{name.text, {}, tree.file() + ":" + std::to_string(name.line) + ": " + what};
    Attempt(mistakes, [&] {
      if (value.IsList()) {
        for (const YamlNode *count : value.items) preset.perCore.push_back(ReadCount(tree, *count, what));
      } else {
        preset.perCore.push_back(ReadCount(tree, value, what));
      }
    });
    presets.push_back(std::move(preset));
  }
  return presets;
}

}  // namespace qdt::host
