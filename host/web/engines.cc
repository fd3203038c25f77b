#include "host/web/engines.h"

#include <algorithm>

#include "host/base/host_error.h"
#include "host/layout/value_text.h"
#include "host/web/lost_pages.h"
#include "host/web/message.h"

namespace qdt::host {
namespace {

EngineState StateOf(ArenaError::Kind kind) {
  switch (kind) {
    case ArenaError::Kind::kMissing:
      return EngineState::kMissing;
    case ArenaError::Kind::kGone:
      return EngineState::kEnded;
    case ArenaError::Kind::kVersion:
      return EngineState::kOtherVersion;
    case ArenaError::Kind::kDamaged:
      return EngineState::kDamaged;
    case ArenaError::Kind::kUnreadable:
      break;
  }
  return EngineState::kUnreadable;
}

bool SameFile(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The last `parts` parts of a path.
std::string_view EndOf(std::string_view path, size_t parts) {
  size_t begin = path.size();
  for (; parts > 0 && begin != 0; --parts) {
    const size_t slash = path.rfind('/', begin - 1);
    begin = slash == path.npos ? 0 : slash;
  }
  return path.substr(path.substr(begin).starts_with('/') ? begin + 1 : begin);
}

}  // namespace

std::string_view StateName(EngineState state) {
  static constexpr std::string_view kNames[] = {"up",      "saved",   "missing",   "ended",
                                                "damaged", "version", "unreadable"};
  return kNames[static_cast<size_t>(state)];
}

std::vector<std::string> WebEngine::PlaceWords() const { return {saved_ ? "--snapshot" : "--arena", path_}; }

std::unique_ptr<RecordSource> WebEngine::Open() const {
  const Layout &layout = Layout::BuiltIn();
  return saved_ ? RecordSource::OfSnapshot(path_, layout) : RecordSource::OfEngine(path_, layout);
}

// A saved arena that is another file now.
void WebEngine::Renew() {
  struct stat now = {};
  if (!saved_ || (stat(path_.c_str(), &now) == 0 && SameFile(now, file_))) return;
  file_ = now;
  kept_.clear();
  ++generation_;
}

std::unique_ptr<RecordSource> WebEngine::TakeKept(uint64_t *generation) {
  const std::lock_guard lock(mutex_);
  Renew();
  *generation = generation_;
  if (kept_.empty()) return nullptr;
  std::unique_ptr<RecordSource> source = std::move(kept_.back());
  kept_.pop_back();
  return source;
}

WebEngine::Loan WebEngine::Borrow() {
  uint64_t generation = 0;
  while (std::unique_ptr<RecordSource> source = TakeKept(&generation)) {
    if (!saved_ && !source->arena().EngineAlive()) continue;
    source->LookNow();
    return Loan(this, std::move(source), generation);
  }
  try {
    return Loan(this, Open(), generation);
  } catch (const ArenaError &error) {
    throw EngineProblem(StateOf(error.kind()), error.what());
  } catch (const HostError &error) {
    throw EngineProblem(EngineState::kUnreadable, error.what());
  }
}

void WebEngine::Return(std::unique_ptr<RecordSource> source, uint64_t generation) {
  const std::lock_guard lock(mutex_);
  if (generation == generation_ && kept_.size() < kKept) kept_.push_back(std::move(source));
}

std::string WebEngine::ToldName() const {
  std::string told;
  AppendEscaped(name_, &told);
  return told;
}

WebEngine::Loan::~Loan() {
  if (source_ != nullptr) engine_->Return(std::move(source_), generation_);
}

EngineLook WebEngine::Look() {
  try {
    if (!Survive([this] { Borrow(); }))
      return {EngineState::kDamaged, "the arena at " + path_ + " is being cut short"};
    return {saved_ ? EngineState::kSaved : EngineState::kUp, ""};
  } catch (const EngineProblem &problem) {
    return {problem.state(), problem.what()};
  }
}

WebEngines::WebEngines(std::span<const Named> paths) {
  for (const Named &each : paths) {
    const auto same = [&](const Named &other) { return other.path == each.path; };
    if (std::ranges::count_if(paths, same) != 1)
      throw HostError("the arena " + Quoted(each.path) + " is named twice");
    size_t parts = 1;
    const auto alike = [&](const Named &other) {
      return EndOf(other.path, parts) == EndOf(each.path, parts);
    };
    while (EndOf(each.path, parts).size() < each.path.size() && std::ranges::count_if(paths, alike) != 1)
      ++parts;
    engines_.emplace_back(std::string(EndOf(each.path, parts)), each.path, each.saved);
  }
}

WebEngine &WebEngines::Find(std::string_view name) {
  if (engines_.empty())
    throw WebProblem(404, "this server shows no engine (name one with --arena or --snapshot)");
  if (name.empty()) return engines_.front();
  for (WebEngine &engine : engines_) {
    if (engine.name() == name || engine.ToldName() == name) return engine;
  }
  throw WebProblem(404, "there is no engine " + Quoted(name) + "; /api/v1/engines lists them");
}

}  // namespace qdt::host
