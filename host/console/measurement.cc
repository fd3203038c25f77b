#include "host/console/measurement.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/base/host_error.h"
#include "host/measure/measure_regions.h"
#include "host/record/record_json.h"
#include "qdt/pmu.h"
#include "qdt/sched_trace.h"

namespace qdt::host {
namespace {

constexpr char kSchema[] = R"({"type":"object","properties":{
"scheduler":{"type":["object","null"],"description":"null where the engine has no such region","properties":{
"traces":{"type":["string","null"],"enum":["time","icache","dcache","task_path","snapshot",null]},
"contexts":{"type":"array","items":{"type":"object","properties":{
"number":{"$ref":"#/components/schemas/count"},"late_batches":{"$ref":"#/components/schemas/count"},
"timely_batches":{"$ref":"#/components/schemas/count"},
"tasks":{"type":"array","items":{"type":"object","properties":{
"id":{"$ref":"#/components/schemas/count"},"name":{"type":"string"},"runs":{"$ref":"#/components/schemas/count"},
"packets":{"$ref":"#/components/schemas/count"},
"a":{"$ref":"#/components/schemas/count","description":"cycles where time is traced, misses where a cache is"},
"b":{"$ref":"#/components/schemas/count","description":"hits of a cache"},
"maximum":{"$ref":"#/components/schemas/count"}},
"required":["id","name","runs","packets","a","b","maximum"],"additionalProperties":false}},
"path":{"type":"array","items":{"type":"integer","minimum":0}}},
"required":["number","late_batches","timely_batches","tasks","path"],"additionalProperties":false}},
"edges":{"type":"array","description":"which task may follow which","items":{"type":"object","properties":{
"from":{"$ref":"#/components/schemas/count"},"to":{"$ref":"#/components/schemas/count"}},
"required":["from","to"],"additionalProperties":false}}},
"required":["traces","contexts","edges"],"additionalProperties":false},
"fast":{"type":["object","null"],"properties":{
"mode":{"type":"integer","minimum":0,"description":"0: nothing is counted"},
"events":{"type":"array","items":{"type":"string"}},
"cores":{"type":"array","items":{"type":"object","properties":{
"number":{"$ref":"#/components/schemas/count"},
"points":{"type":"array","items":{"type":"object","properties":{
"point":{"type":"integer","minimum":0,"maximum":7},"hits":{"$ref":"#/components/schemas/count"},
"packets":{"$ref":"#/components/schemas/count"},
"events":{"type":"array","items":{"$ref":"#/components/schemas/count"}},
"cycles":{"type":["integer","null"],"minimum":0},"cycles_per_packet":{"type":["number","null"]}},
"required":["point","hits","packets","events","cycles","cycles_per_packet"],"additionalProperties":false}}},
"required":["number","points"],"additionalProperties":false}}},
"required":["mode","events","cores"],"additionalProperties":false},
"names":{"type":"array","description":"of tasks that may run","items":{"type":"object","properties":{
"id":{"$ref":"#/components/schemas/count"},"name":{"type":"string"}},
"required":["id","name"],"additionalProperties":false}}},
"required":["scheduler","fast","names"],"additionalProperties":false})";

constexpr uint32_t kMostContexts = 64;

// The library names tasks in its texts alone: it is asked for the text of a made-up record in which each task
// ran.
std::vector<std::string> ReadTaskNames() {
  const auto record = std::make_unique<TaskTraceBlock>();
  record->flag = kTraceTaskTime;
  std::fill(std::begin(record->runs), std::end(record->runs), 1);
  const auto room = std::make_unique<char[]>(QDT_OUTPUT_CAPACITY);
  OutputBuffer out{room.get(), 0};
  FormatEventTracer(&out, kTraceTaskTime, reinterpret_cast<const SchedTraceRunc *>(record.get()), 0,
                    QDT_SCHED_TASKS);
  std::vector<std::string> names;
  std::string_view text(out.buf, out.len);
  constexpr std::string_view kBefore = "task_name = ", kBehind = ", task_cnt = ";
  for (size_t at; (at = text.find(kBefore)) != text.npos;) {
    text.remove_prefix(at + kBefore.size());
    names.emplace_back(text.substr(0, text.find(kBehind)));
  }
  names.resize(QDT_SCHED_TASKS);
  return names;
}

const std::string &TaskName(uint32_t id) {
  static const std::vector<std::string> kNames = ReadTaskNames();
  static const std::string kNone;
  return id < kNames.size() ? kNames[id] : kNone;
}

std::string_view TraceName(uint8_t flag) {
  switch (flag) {
    case kTraceTaskTime:
      return "time";
    case kTraceTaskICache:
      return "icache";
    case kTraceTaskDCache:
      return "dcache";
    case kTraceTaskPath:
      return "task_path";
    case kTraceTaskNodes:
      return "snapshot";
    default:
      return "";
  }
}

class MeasurementWriter {
 public:
  MeasurementWriter(TextOut *out, const RecordSource &source) : json_(*out), source_(source) {
    json_.SetMaxDecimalPlaces(3);
  }

  void Write() {
    json_.StartObject();
    JsonKey(&json_, "scheduler");
    Scheduler();
    JsonKey(&json_, "fast");
    Fast();
    JsonKey(&json_, "names");
    Names();
    json_.EndObject();
  }

 private:
  void Number(std::string_view name, uint64_t value) {
    JsonKey(&json_, name);
    json_.Uint64(value);
  }

  // The bytes of a region, copied: the engine writes them meanwhile.
  std::vector<uint8_t> Copy(const char *name) const {
    uint32_t size = 0;
    const auto *bytes = static_cast<const uint8_t *>(source_.arena().FindRegion(name, &size));
    return bytes == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(bytes, bytes + size);
  }

  void Scheduler() {
    const std::vector<uint8_t> bytes = Copy(kTaskTraceRegion);
    if (bytes.size() < TaskTraceSize(0)) return static_cast<void>(json_.Null());
    uint64_t count = 0;
    std::memcpy(&count, bytes.data(), sizeof(count));
    const size_t room = (bytes.size() - TaskTraceSize(0)) / sizeof(TaskTraceBlock);
    std::vector<TaskTraceBlock> blocks(std::min<uint64_t>({count, room, kMostContexts}));
    if (!blocks.empty())
      std::memcpy(static_cast<void *>(blocks.data()), bytes.data() + TaskTraceSize(0),
                  blocks.size() * sizeof(blocks[0]));
    json_.StartObject();
    JsonKey(&json_, "traces");
    const std::string_view trace = blocks.empty() ? "" : TraceName(blocks.front().flag);
    trace.empty() ? static_cast<void>(json_.Null()) : JsonText(&json_, trace);
    JsonKey(&json_, "contexts");
    json_.StartArray();
    for (size_t i = 0; i < blocks.size(); ++i) Context(i, blocks[i]);
    json_.EndArray();
    JsonKey(&json_, "edges");
    json_.StartArray();
    if (!blocks.empty()) Edges(blocks.front());
    json_.EndArray();
    json_.EndObject();
  }

  void Context(size_t number, const TaskTraceBlock &block) {
    json_.StartObject();
    Number("number", number);
    Number("late_batches", block.lateBatches);
    Number("timely_batches", block.timelyBatches);
    JsonKey(&json_, "tasks");
    json_.StartArray();
    for (uint32_t id = 0; id < TaskTraceBlock::kTasks; ++id) {
      if (block.runs[id] == 0) continue;
      json_.StartObject();
      Number("id", id);
      JsonKey(&json_, "name");
      JsonEscaped(&json_, TaskName(id));
      Number("runs", block.runs[id]);
      Number("packets", block.packets[id]);
      Number("a", block.eventA[id]);
      Number("b", block.eventB[id]);
      Number("maximum", block.maximum[id]);
      json_.EndObject();
    }
    json_.EndArray();
    JsonKey(&json_, "path");
    json_.StartArray();
    for (const uint16_t id : block.path) {
      if (block.pathMark == 0 || id >= TaskTraceBlock::kTasks) break;
      json_.Uint(id);
    }
    json_.EndArray();
    json_.EndObject();
  }

  void Edges(const TaskTraceBlock &block) {
    for (uint32_t from = 0; from < TaskTraceBlock::kNodes; ++from) {
      const TaskTraceBlock::Node &node = block.nodes[from];
      if (node.presence == 0) continue;
      for (uint32_t to = 0; to < TaskTraceBlock::kNodes; ++to) {
        if ((node.successors[to / 64] >> to % 64 & 1) == 0) continue;
        json_.StartObject();
        Number("from", from);
        Number("to", to);
        json_.EndObject();
      }
    }
  }

  void Fast() {
    const std::vector<uint8_t> bytes = Copy(kFastStatRegion);
    FastStatBlock block;
    if (bytes.size() < sizeof(block)) return static_cast<void>(json_.Null());
    std::memcpy(&block, bytes.data(), sizeof(block));
    // A mode that is stopped leaves its figures, but not which mode it was.
    const PmuEventSelect *events = block.mode <= QDT_PMU_MODES ? evt_define[block.mode] : nullptr;
    std::vector<uint32_t> numbers;
    json_.StartObject();
    Number("mode", block.mode);
    JsonKey(&json_, "events");
    json_.StartArray();
    for (; events != nullptr && events->event != QDT_PMU_EVENT_END && numbers.size() < FastStatBlock::kEvents;
         ++events) {
      JsonText(&json_, events->name);
      numbers.push_back(events->event);
    }
    json_.EndArray();
    JsonKey(&json_, "cores");
    json_.StartArray();
    const auto cores = std::clamp<int32_t>(block.coreCount, 0, FastStatBlock::kCores);
    for (int32_t i = 0; i < cores; ++i) Core(static_cast<uint32_t>(i), block.cores[i], numbers);
    json_.EndArray();
    json_.EndObject();
  }

  void Core(uint32_t number, const FastStatBlock::Core &core, const std::vector<uint32_t> &numbers) {
    const size_t cycles =
        static_cast<size_t>(std::ranges::find(numbers, QDT_PMU_EVENT_CYCLES) - numbers.begin());
    json_.StartObject();
    Number("number", number);
    JsonKey(&json_, "points");
    json_.StartArray();
    for (uint32_t i = 0; i < FastStatBlock::kPoints; ++i) {
      const FastStatBlock::Point &point = core.points[i];
      if (point.hits == 0) continue;
      json_.StartObject();
      Number("point", i);
      Number("hits", point.hits);
      Number("packets", point.packets);
      JsonKey(&json_, "events");
      json_.StartArray();
      for (size_t event = 0; event < numbers.size(); ++event) json_.Uint64(point.events[event].count);
      json_.EndArray();
      const bool known = cycles < numbers.size();
      JsonKey(&json_, "cycles");
      known ? json_.Uint64(point.events[cycles].count) : json_.Null();
      JsonKey(&json_, "cycles_per_packet");
      known &&point.packets != 0
          ? json_.Double(static_cast<double>(point.events[cycles].count) / point.packets)
          : json_.Null();
      json_.EndObject();
    }
    json_.EndArray();
    json_.EndObject();
  }

  void Names() {
    json_.StartArray();
    for (uint32_t id = 0; id < TaskTraceBlock::kTasks; ++id) {
      if (TaskName(id).empty()) continue;
      json_.StartObject();
      Number("id", id);
      JsonKey(&json_, "name");
      JsonEscaped(&json_, TaskName(id));
      json_.EndObject();
    }
    json_.EndArray();
  }

  JsonWriter json_;
  const RecordSource &source_;
};

}  // namespace

void WriteMeasurement(TextOut *out, const RecordSource &source) { MeasurementWriter(out, source).Write(); }

std::string_view MeasurementSchema() { return kSchema; }

}  // namespace qdt::host
