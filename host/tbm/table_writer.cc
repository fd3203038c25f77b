#include "host/tbm/table_writer.h"

#include <syslog.h>

#include "host/tbm/route_key.h"
#include "host/tbm/status.h"
#include "host/tbm/table_change.h"

namespace qdt::host {

using namespace tbm;  // the tables' bytes

namespace {

void SayFull(const TableView &view, uint32_t table) {
  if (view.state().fullSaid != 0) return;
  view.state().fullSaid = 1;
  syslog(LOG_ERR, "table %u (%s) is full: %u entries\n", table, view.name(), view.shape().capacity);
}

}  // namespace

int32_t TableWriter::Insert(uint32_t table, const void *key, const void *record, void **address) {
  TableView view;
  int32_t status = TableView::Open(arena_, table, &view);
  if (status != kTbmOk) return status;
  const auto lookup = static_cast<Lookup>(view.shape().lookup);
  if (key == nullptr || record == nullptr || !IsGoodKey(lookup, key)) return kTbmBadParam;
  const TableKey tableKey = view.KeyOf(key);
  if (lookup != Lookup::kMany) {
    Place place;
    if (view.Find(tableKey, &place) == kTbmOk) return kTbmExists;
  }
  status = TableChange(view).Insert(tableKey, record, address);
  if (status == kTbmFull) SayFull(view, table);
  return status;
}

int32_t TableWriter::Remove(uint32_t table, const void *key) {
  TableView view;
  int32_t status = TableView::Open(arena_, table, &view);
  if (status != kTbmOk) return status;
  if (key == nullptr) return kTbmBadParam;
  Place place;
  status = view.Find(view.KeyOf(key), &place);
  if (status == kTbmOk) TableChange(view).Remove(place.ref);
  return status;
}

int32_t TableWriter::RemoveEntry(uint32_t table, void *address) {
  TableView view;
  const int32_t status = TableView::Open(arena_, table, &view);
  if (status != kTbmOk) return status;
  const uint32_t ref = view.RefOfAddress(address);
  if (ref == 0) return kTbmNotFound;
  TableChange(view).Remove(ref);
  return kTbmOk;
}

int32_t TableWriter::Update(uint32_t table, void *address, const void *record) {
  TableView view;
  const int32_t status = TableView::Open(arena_, table, &view);
  if (status != kTbmOk) return status;
  if (record == nullptr) return kTbmBadParam;
  const uint32_t ref = view.RefOfAddress(address);
  if (ref == 0) return kTbmNotFound;
  TableChange(view).Update(ref, record);
  return kTbmOk;
}

}  // namespace qdt::host
