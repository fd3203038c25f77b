#ifndef HOST_WEB_ENGINES_H_
#define HOST_WEB_ENGINES_H_

#include <sys/stat.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/record/record_source.h"
#include "host/web/message.h"

namespace qdt::host {

// How an engine, or a saved arena, is found when it is looked at.
enum class EngineState : uint8_t {
  kUp,       // a running engine
  kSaved,    // a saved arena, readable
  kMissing,  // there is no such file: not yet, or not any more
  kEnded,    // an arena that its engine has left
  kDamaged,  // truncated, changed, or no arena at all
  kOtherVersion,
  kUnreadable,  // not this user's to read, or not to be believed
};
// "up", "saved", "missing", "ended", "damaged", "version", "unreadable": the words of the interface.
std::string_view StateName(EngineState state);
inline bool IsReadable(EngineState state) {
  return state == EngineState::kUp || state == EngineState::kSaved;
}

// What an engine that cannot be read now answers: 503, with its state in the type.
class EngineProblem : public WebProblem {
 public:
  EngineProblem(EngineState state, std::string detail)
      : WebProblem(503, std::move(detail), "engine-" + std::string(StateName(state))), state_(state) {}
  EngineState state() const { return state_; }

 private:
  EngineState state_;
};

struct EngineLook {
  EngineState state = EngineState::kMissing;
  std::string message;  // why it cannot be read; empty when it can
};

// One arena that the server shows. Its views are for one thread each: who reads borrows one, and gives it
// back for the next. An engine that ends, comes back or is another one is noticed when it is asked for.
class WebEngine {
 public:
  WebEngine(std::string name, std::string path, bool saved)
      : name_(std::move(name)), path_(std::move(path)), saved_(saved) {}

  const std::string &name() const { return name_; }
  // The name as documents and metrics have it: files may be called anything.
  std::string ToldName() const;
  const std::string &path() const { return path_; }
  // Whether it was named as a saved arena.
  bool saved() const { return saved_; }
  // The words behind which nqecli works on this arena: "--arena PATH".
  std::vector<std::string> PlaceWords() const;

  // A view of the arena, which nobody else uses meanwhile.
  class Loan {
   public:
    Loan(WebEngine *engine, std::unique_ptr<RecordSource> source, uint64_t generation)
        : engine_(engine), source_(std::move(source)), generation_(generation) {}
    ~Loan();
    Loan(Loan &&) = default;
    const RecordSource &operator*() const { return *source_; }
    const RecordSource *operator->() const { return source_.get(); }

   private:
    WebEngine *engine_;
    std::unique_ptr<RecordSource> source_;
    uint64_t generation_;
  };
  // Throws EngineProblem when it cannot be read now.
  Loan Borrow();
  // What Borrow would find now.
  EngineLook Look();

 private:
  std::unique_ptr<RecordSource> Open() const;
  void Renew();
  std::unique_ptr<RecordSource> TakeKept(uint64_t *generation);
  void Return(std::unique_ptr<RecordSource> source, uint64_t generation);

  static constexpr size_t kKept = 4;  // views that wait for the next reader

  const std::string name_;
  const std::string path_;
  const bool saved_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<RecordSource>> kept_;
  uint64_t generation_ = 0;  // of the file at the path
  struct stat file_ = {};    // of saved arenas, when the kept views were made
};

// All engines of a server, in the order in which they were named.
class WebEngines {
 public:
  struct Named {
    std::string path;
    bool saved = false;
  };
  // An engine's name is the last part of its path, or as much more of it as tells it from the others. Throws
  // HostError when a path is named twice.
  explicit WebEngines(std::span<const Named> paths);

  std::deque<WebEngine> &all() { return engines_; }
  // The first one where no name is given. Throws WebProblem 404 when there is none of the name.
  WebEngine &Find(std::string_view name);

 private:
  std::deque<WebEngine> engines_;
};

}  // namespace qdt::host

#endif  // HOST_WEB_ENGINES_H_
