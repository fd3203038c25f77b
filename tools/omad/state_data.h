#ifndef TOOLS_OMAD_STATE_DATA_H_
#define TOOLS_OMAD_STATE_DATA_H_

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/agent/state.h"
#include "host/nacm/rules.h"
#include "host/omcc/model.h"
#include "tools/omad/client.h"

namespace qdt::omad {

// All sources of state data, with what the data model says of them.
class StateData {
 public:
  // Sources that omad walks itself; those of the engine's arena stand behind them.
  StateData(const host::Model &model, std::vector<host::StateSource> own);

  size_t count() const { return sources_.size(); }
  const host::StateSource &source(size_t place) const { return sources_[place].source; }
  // Whether the worker walks it, and under which number.
  bool IsOfEngine(size_t place) const { return place >= own_; }
  size_t EnginePlace(size_t place) const { return place - own_; }

  // The sources of these places (host/session/places.h); all of them when none is named. Of what this user
  // may read only a part of, a place's condition is left to the session: the entries that it leaves would
  // tell what the user may not read.
  std::vector<DataWalk::Part> Wanted(const std::vector<std::string> &places,
                                     const host::NacmUser &user) const;

  // A piece for a session: the list keys of the source, and of the records what this user may read.
  std::string Piece(size_t place, const host::NacmUser &user, std::vector<host::StateRecord> records) const;

  // What access control has to know of the data model.
  const host::NacmUser::Schema &schema() const { return schema_; }

 private:
  struct Source {
    host::StateSource source;
    std::string space;
    std::string keys;
    bool looksInto = false;  // the model denies some of it
  };
  void NoteDenied(const lysc_node *node, const std::string &path);
  // Whether the user may read all of a record or nothing.
  bool MayReadWhole(const Source &source, const host::NacmUser &user) const;
  bool MayRead(const Source &source, const host::NacmUser &user, host::StateRecord *record) const;

  const host::Model &model_;
  const size_t own_;
  std::vector<Source> sources_;
  std::set<std::string> denied_;  // "{NAMESPACE}/NODE/NODE"
  host::NacmUser::Schema schema_;
};

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_STATE_DATA_H_
