// compile_layouts OUT.cc LAYOUT.yaml...: reads layout files and writes them as constants of C++, so that
// programs have the engine's tables without reading anything. Runs while the project is built.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/base/text_file.h"
#include "host/layout/layout_files.h"

namespace qdt::host {
namespace {

constexpr uint64_t kMaxFile = 4u << 20;

std::string Text(std::string_view text) {
  std::string literal = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') literal += '\\';
    literal += c;
  }
  return literal + "\"sv";
}

std::string Number(uint64_t number) { return std::to_string(number) + "u"; }

std::string Constant(const std::optional<WideValue> &value) {
  if (!value) return "{}";
  const std::string high = Number(static_cast<uint64_t>(*value >> 64));
  return "WideValue{" + high + "} << 64 | " + Number(static_cast<uint64_t>(*value));
}

// Writes the constants that others name before these.
class LayoutWriter {
 public:
  explicit LayoutWriter(std::ostream &out) : out_(out) {}

  void Write(const Layout &layout) {
    out_ << "#include \"host/layout/layout.h\"\n\nnamespace qdt::host {\nnamespace {\n\n"
            "using std::literals::string_view_literals::operator\"\"sv;\n\n";
    std::vector<std::string> tables;
    for (const TableLayout &table : layout.tables()) tables.push_back(Table(table));
    std::vector<std::string> regions;
    for (const RegionLayout &region : layout.regions()) regions.push_back(Region(region));
    std::vector<std::string> views;
    for (const ViewLayout &view : layout.views()) views.push_back(View(view));
    Array("TableLayout", "kTables", tables);
    Array("RegionLayout", "kRegions", regions);
    Array("ViewLayout", "kViews", views);
    Array("uint16_t", "kByName", ByName(layout));
    out_ << "}  // namespace\n\nconst Layout &Layout::BuiltIn() {\n"
            "  static const Layout layout(kTables, kRegions, kViews, kByName);\n  return layout;\n}\n\n"
            "}  // namespace qdt::host\n";
  }

 private:
  void Array(const char *type, const std::string &name, const std::vector<std::string> &elements) {
    out_ << "constexpr " << type << " " << name << "[] = {\n";
    for (const std::string &element : elements) out_ << "    " << element << ",\n";
    out_ << "};\n";
  }

  // The name of a new array of the elements, or nothing for none.
  std::string Named(const char *type, const std::vector<std::string> &elements) {
    if (elements.empty()) return "{}";
    const std::string name = "k" + std::to_string(++arrays_);
    Array(type, name, elements);
    return name;
  }

  std::string Texts(std::span<const std::string_view> texts) {
    std::vector<std::string> literals;
    for (const std::string_view text : texts) literals.push_back(Text(text));
    return Named("std::string_view", literals);
  }

  std::string Numbers(std::span<const uint32_t> numbers) {
    std::vector<std::string> literals;
    for (const uint32_t number : numbers) literals.push_back(Number(number));
    return Named("uint32_t", literals);
  }

  static std::vector<std::string> ByName(const Layout &layout) {
    std::vector<const TableLayout *> tables;
    for (const TableLayout &table : layout.tables()) tables.push_back(&table);
    std::ranges::sort(tables, {}, &TableLayout::shortName);
    std::vector<std::string> ids;
    for (const TableLayout *table : tables) ids.push_back(Number(table->spec.id));
    return ids;
  }

  std::string Fields(const FieldSet &set) {
    if (set.empty()) return "{}";
    const std::span<const Field> fields = set.all();
    std::vector<std::string> elements;
    std::vector<const Field *> order;
    for (const Field &field : fields) {
      elements.push_back(OneField(field));
      order.push_back(&field);
    }
    std::ranges::sort(order, {}, &Field::name);
    std::vector<std::string> places;
    for (const Field *field : order) places.push_back(Number(field - fields.data()));
    const std::string name = Named("Field", elements);
    const std::string byName = Named("uint16_t", places);
    return "{" + name + ", " + byName + ", " + Number(fields.size()) + "}";
  }

  static std::string Ref(const FieldRef &ref) {
    return "{" + Number(ref.offset) + ", " + Number(ref.size) + ", static_cast<FieldKind>(" +
           Number(static_cast<uint8_t>(ref.kind)) + "), " + Number(ref.shift) + ", " + Number(ref.bits) + "}";
  }

  std::string OneField(const Field &field) {
    std::ostringstream text;
    text << "{.name = " << Text(field.name) << ", .ref = " << Ref(field.ref)
         << ", .count = " << Number(field.count) << ", .stride = " << Number(field.stride)
         << ", .fields = " << Fields(field.fields) << ", .targets = " << Texts(field.targets)
         << ", .constant = " << Constant(field.constant) << ", .clearedBy = " << Text(field.clearedBy)
         << ", .line = " << Number(field.line) << ", .pointer = " << Number(field.pointer)
         << ", .chosenBy = " << Text(field.chosenBy) << ", .chosenValue = " << Number(field.chosenValue)
         << ", .selector = " << Text(field.selector) << ", .selectedBy = " << Numbers(field.selectedBy)
         << ", .choice = " << Ref(field.choice) << ", .elementSize = " << Number(field.elementSize)
         << ", .role = static_cast<FieldRole>(" << Number(static_cast<uint8_t>(field.role))
         << "), .about = " << Text(field.about) << ", .unit = " << Text(field.unit)
         << ", .leadsTo = " << Text(field.leadsTo) << ", .mustLead = " << (field.mustLead ? "true" : "false")
         << ", .agreesWith = " << Texts(field.agreesWith) << ", .counts = " << Text(field.counts) << "}";
    return text.str();
  }

  static std::string Spec(const TableSpec &spec) {
    std::ostringstream text;
    text << "{.id = " << Number(spec.id) << ", .name = " << Text(spec.name)
         << ", .keySize = " << Number(spec.keySize) << ", .dataSize = " << Number(spec.dataSize)
         << ", .recordSize = " << Number(spec.recordSize) << ", .searchOffset = " << Number(spec.searchOffset)
         << ", .attachedSize = " << Number(spec.attachedSize) << ", .capacity = " << Number(spec.capacity)
         << ", .groupRuleSpec = " << Number(spec.groupRuleSpec)
         << ", .groupKeySize = " << Number(spec.groupKeySize) << ", .lookup = static_cast<Lookup>("
         << Number(static_cast<uint8_t>(spec.lookup)) << "), .enabled = " << (spec.enabled ? "true" : "false")
         << ", .agingOffset = " << Number(spec.agingOffset) << ", .agingSize = " << Number(spec.agingSize)
         << "}";
    return text.str();
  }

  std::string Table(const TableLayout &table) {
    const std::string key = Fields(table.key);
    const std::string fields = Fields(table.fields);
    return "{" + Spec(table.spec) + ", " + Text(table.shortName) + ", " + Text(table.about) + ", " + key +
           ", " + fields + ", " + Text(table.partOf) + ", " + Text(table.place) + "}";
  }

  std::string Region(const RegionLayout &region) {
    const std::string fields = Fields(region.fields);
    return "{{" + Text(region.spec.name) + ", " + Number(region.spec.size) + ", " +
           (region.spec.clientWritable ? "true" : "false") + "}, " + Text(region.about) + ", " + fields +
           ", " + Text(region.place) + "}";
  }

  std::string View(const ViewLayout &view) {
    const std::string fields = Fields(view.fields), keys = Texts(view.keys);
    return "{" + Number(view.id) + ", " + Text(view.name) + ", " + Text(view.about) + ", " +
           Text(view.table) + ", " + Text(view.region) + ", " + Number(view.recordSize) + ", " + fields +
           ", " + Text(view.place) + ", " + keys + "}";
  }

  std::ostream &out_;
  uint32_t arrays_ = 0;
};

void Compile(const std::string &out, const std::vector<std::string> &paths) {
  std::vector<std::string> texts;
  std::vector<std::string> names;
  for (const std::string &path : paths) {
    texts.push_back(ReadYamlFile(path, kMaxFile));
    names.push_back(std::filesystem::path(path).filename().string());
  }
  std::vector<LayoutText> files;
  for (size_t i = 0; i < paths.size(); ++i) files.push_back({names[i], texts[i]});
  std::ofstream stream(out);
  LayoutWriter(stream).Write(ReadLayouts(files));
  stream.close();
  if (!stream) throw HostError("cannot write " + out);
}

}  // namespace
}  // namespace qdt::host

int main(int argc, char **argv) {
  try {
    if (argc < 3) throw qdt::host::HostError("usage: compile_layouts OUT.cc LAYOUT.yaml...");
    qdt::host::Compile(argv[1], {argv + 2, argv + argc});
    return 0;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "compile_layouts: %s\n", error.what());
    return 1;
  }
}
