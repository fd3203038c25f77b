#ifndef HOST_LINUX_NEXTHOPS_H_
#define HOST_LINUX_NEXTHOPS_H_

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "host/linux/neighbours.h"

namespace qdt::host {

// Where a route leads to: the number of a next hop, or of a group and kGroup; 0: nowhere.
using Destination = uint32_t;
constexpr Destination kGroup = 1u << 31;

// Numbers from 1 to some most, the lowest first; those that come back rest for a while.
class Numbers {
 public:
  explicit Numbers(uint32_t most) : most_(most) {}
  uint32_t Take();  // 0: all are in use
  void Return(uint32_t number);
  // Whether a number has come back since one was asked for in vain.
  bool TakeRoomAgain() { return std::exchange(roomAgain_, false); }
  uint64_t refused() const { return refused_; }

 private:
  uint32_t most_;
  uint32_t used_ = 0;
  uint64_t refused_ = 0;
  bool isLacking_ = false, roomAgain_ = false;
  std::deque<uint32_t> resting_;
};

class NextHopObjects;

// The next hops and groups of one family's routes, numbered by the mirror, as long as anybody uses them.
class NextHops {
 public:
  NextHops(const FillTarget &target, Family family, const Links &links, const Neighbours &neighbours,
           const NextHopObjects &objects);

  // The destination with these ways, or the one of a next-hop object, with one user more. Nowhere when there
  // are no ways, when the object is not known (yet), or when all numbers are in use.
  Destination Use(std::span<const Leg> legs);
  Destination UseObject(uint32_t object);
  void UseAgain(Destination destination);
  void Release(Destination destination);

  // What a route says of its destination.
  struct Bound {
    uint16_t number = 0;
    bool isGroup = false;
    bool direct = false;
    void *entry = nullptr;
  };
  Bound At(Destination destination) const;
  // The ways of a destination that no object stands for.
  std::vector<Leg> LegsOf(Destination destination) const;

  void ObjectChanged(uint32_t object);
  void NeighbourChanged(const NeighbourId &neighbour);
  void LinksChanged(const std::set<uint32_t> &links);
  // Whether next hops or groups that had found no room were entered: routes do not lead to them yet.
  bool EnterWhereRoomIs();
  uint64_t refused() const {
    return hopTable_.refused() + groupTable_.refused() + freeHops_.refused() + freeGroups_.refused();
  }
  // Whether an object was asked for that is not known.
  bool TakeMissing() { return std::exchange(missing_, false); }

 private:
  struct Hop {
    Leg identity, leg;  // what it is known by, and where it leads at the moment
    uint32_t users = 0;
    void *entry = nullptr;
  };
  using GroupIdentity = std::vector<Leg>;  // of an object's, that object alone
  struct Group {
    GroupIdentity identity;
    std::vector<Destination> members;
    uint32_t users = 0;
    void *entry = nullptr;
  };
  Destination UseHop(Leg identity, const Leg &leg);
  Destination UseGroup(const GroupIdentity &identity);
  void Lead(uint32_t number, const Leg &leg);
  void Write(uint32_t number);
  void WriteGroup(uint32_t number, std::vector<Destination> members);
  std::vector<Destination> MembersOf(const GroupIdentity &identity);
  NeighbourId NeighbourOf(const Leg &leg) const;

  const Family family_;
  const Links &links_;
  const Neighbours &neighbours_;
  const NextHopObjects &objects_;
  std::vector<Hop> hops_;  // by number
  std::vector<Group> groups_;
  std::map<Leg, uint32_t> hopNumbers_;
  std::map<GroupIdentity, uint32_t> groupNumbers_;
  std::unordered_map<NeighbourId, std::set<uint32_t>, HashOfBytes<NeighbourId>, SameBytes<NeighbourId>>
      byNeighbour_;
  Numbers freeHops_, freeGroups_;
  bool missing_ = false;
  MirrorTable hopTable_, groupTable_;
  FieldRef hopKey_, hopIf_, hopAddress_, hopMtu_, hopMiss_, encapType_, encapSize_, fwdifCount_, fwdif_;
  FieldRef dmac_, smac_, etherType_, vlan_;
  std::vector<FieldRef> encapData_;
  FieldRef groupKey_, memberCount_, memberBitmap_;
  std::vector<FieldRef> memberNumbers_, memberEntries_;
};

// The kernel's next-hop objects. Each has its place among the next hops whether a route uses it or not.
class NextHopObjects {
 public:
  struct Member {
    uint32_t object;
    uint16_t weight;
  };
  struct Object {
    Family family = kIpv4;
    bool isBlackhole = false;
    Leg leg;
    std::vector<Member> members;  // of a group
    Destination held = 0;
    Family heldFamily = kIpv4;
  };

  void Begin() { objects_.Begin(); }
  void Take(const Message &message, Told told);
  void End(bool complete);
  const Object *Find(uint32_t object) const { return objects_.Find({object}); }
  void SetFamilies(NextHops *v4, NextHops *v6) {
    families_[kIpv4] = v4;
    families_[kIpv6] = v6;
  }
  // Whether the kernel may have dropped or changed routes without a word: an object has gone, or leads
  // somewhere where it did not.
  bool TakeSilentLoss() { return std::exchange(silentLoss_, false); }
  // Whether objects have come that there were none of before.
  bool TakeNew() { return std::exchange(new_, false); }

 private:
  struct Id {
    uint32_t object;
  };
  void Hold(const Id &id, Object *object);
  void Leave(const Id &id, Object *object);

  KernelSet<Id, Object> objects_;
  NextHops *families_[2] = {};
  bool silentLoss_ = false, new_ = false;
};

}  // namespace qdt::host

#endif  // HOST_LINUX_NEXTHOPS_H_
