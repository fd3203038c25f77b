#ifndef HOST_NETLINK_FEED_H_
#define HOST_NETLINK_FEED_H_

#include <chrono>
#include <span>

#include "host/netlink/dump.h"

namespace qdt::host {

// Follows one part of the kernel: what it tells by itself, and its dumps where it does not, or where what it
// told was lost.
class Feed {
 public:
  // `buffer` bytes for notifications that wait. Throws HostError.
  Feed(const NetworkNamespace &where, int protocol, uint32_t dumps, int buffer);
  virtual ~Feed() = default;
  Feed(const Feed &) = delete;
  Feed &operator=(const Feed &) = delete;

  // The files to watch.
  int notifications() const { return notifications_.fd(); }
  int dumps() const { return dumpSocket_.fd(); }

  // Dumps everything and waits for it.
  void Load();
  // Some of the notifications that wait, and a piece of the dump that runs. Returns whether it has more to do
  // though none of the files may be readable.
  bool Follow();
  // Takes everything out of the tables: what was mirrored is no more.
  void Clear();

 protected:
  // Subscribes; to be called before the first dump, so that nothing falls between the two. False where a
  // group could not be joined.
  bool Join(std::span<const int> groups);
  void Want(uint32_t dumps) { dumper_.Want(dumps); }
  const Dumper &dumper() const { return dumper_; }
  NetlinkSocket &dumpSocket() { return dumpSocket_; }

  virtual void TakeNotification(const Message &message) = 0;
  virtual void Begin(Dump dump) = 0;
  virtual void TakeDump(Dump dump, const Message &message) = 0;
  // As Dumper::Receiver::end.
  virtual bool End(Dump dump, bool complete) = 0;
  // Brings up to date what depends on what has changed, and wants the dumps that it takes to be sure.
  virtual void Settle() = 0;

 private:
  bool FollowNotifications();

  const uint32_t kinds_;  // of dumps
  NetlinkSocket notifications_, dumpSocket_;
  Dumper dumper_;
  bool lostSaid_ = false;
  bool bursting_ = false;
  std::chrono::steady_clock::time_point burst_{};
};

}  // namespace qdt::host

#endif  // HOST_NETLINK_FEED_H_
