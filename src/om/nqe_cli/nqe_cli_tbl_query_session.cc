#include <arpa/inet.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "qdt/cli.h"
#include "qdt/session.h"
#include "qdt/tables.h"
#include "src/om/common/address.h"
#include "src/om/common/memory_probe.h"
#include "src/om/common/record_copy.h"
#include "src/om/common/section.h"
#include "src/om/engine/session.h"
#include "src/om/nqe_cli/table_view.h"

// View of the sessions. Unlike the other views it collects all of its records in one walk.
using qdt::ReadEngineMemory;
using qdt::SessionKey;
using qdt::SessionRecord;
using qdt::Text;

namespace {

constexpr int32_t kMatch = 0;
constexpr int32_t kNoMatch = QDT_TBL_FAIL;

constexpr uint32_t kDefaultLimit = 682;
// More records than this have no length that a format operation could be given.
constexpr uint32_t kLargestLimit = INT32_MAX / sizeof(SessionRecord);

bool HasPrefix(const char *text, const char *word) { return std::strncmp(text, word, 3) == 0; }

// Reads the limit behind "num", of which the low 32 bits count; 0 or a code.
int32_t ReadLimit(const char *key1, uint32_t *limit) {
  const size_t room = std::strlen(key1) - 2;
  const qdt::OwnedText number = qdt::AllocateText(QDT_HERE, room);
  if (number == nullptr) return QDT_TBL_NO_MEMORY;
  if (qdt::strcpy_s(number.get(), room, key1 + 3) != 0) return QDT_TBL_INTERNAL;
  *limit = static_cast<uint32_t>(std::strtol(number.get(), nullptr, 10));
  return *limit <= kLargestLimit ? 0 : int32_t{QDT_TBL_NO_MEMORY};
}

int32_t ToResult(bool matches) { return matches ? kMatch : kNoMatch; }

// The search's text as what keys are compared with: two addresses, or a word and an address. It is read when
// a key first asks for it, and again by each key while it cannot be read, which is logged every time.
class SearchText {
 public:
  int32_t Match(const SessionSearchKey &search, const SessionKey *key) {
    if (!isRead_ && !Read(search.Text)) return QDT_TBL_UNSUPPORTED;
    if (source_ != INADDR_NONE && destination_ != INADDR_NONE)
      return SessionNodeParamMultiIp(&search, source_, destination_, key);
    return SessionNodeParamSingleIp(&search, first_, second_, destination_, key);
  }

 private:
  bool Read(const char *text) {
    isRead_ = QdtCliGetIpsSeparatedByColon(text, first_, second_, sizeof(first_)) == 0;
    if (!isRead_) return false;
    source_ = inet_addr(first_);
    destination_ = inet_addr(second_);
    return true;
  }

  bool isRead_ = false;
  uint32_t source_, destination_;
  char first_[INET_ADDRSTRLEN], second_[INET_ADDRSTRLEN];
};

bool Matches(const SessionSearchKey &search, SearchText &text, uint64_t key) {
  SessionKey copy;
  return ReadEngineMemory(key, &copy, sizeof(copy)) && text.Match(search, &copy) == kMatch;
}

// Where a session's keys lie: all that a search needs of a record that it does not collect.
struct KeyPlaces {
  uint64_t positive;
  uint64_t negative;
  bool operator==(const KeyPlaces &) const = default;
};
static_assert(offsetof(SessionRecord, negativeKey) ==
              offsetof(SessionRecord, positiveKey) + sizeof(uint64_t));

KeyPlaces KeysOf(const void *record) {
  return qdt::CopyOf<KeyPlaces>(static_cast<const char *>(record) + offsetof(SessionRecord, positiveKey));
}

// A search matches a session in either direction.
bool Matches(const SessionSearchKey &search, SearchText &text, const KeyPlaces &keys) {
  if (HasPrefix(search.Text, "all") || HasPrefix(search.Text, "num")) return true;
  return Matches(search, text, keys.positive) || Matches(search, text, keys.negative);
}

// A search that goes through the table.
struct SessionSearch {
  SessionCollect collect;
  SearchText text;
};

// Collects the record when it matches.
int32_t Collect(const void *record, SessionCollect *collect, SearchText &text) {
  if (collect->Count > collect->Limit) return QDT_TBL_STOP;
  const KeyPlaces keys = KeysOf(record);
  if (keys.positive == 0 || keys.negative == 0) return QDT_TBL_CONTINUE;
  qdt::EngineMemoryScope::NoteDelivered(record, sizeof(SessionRecord));
  if (!Matches(collect->Key, text, keys)) return QDT_TBL_CONTINUE;
  const auto session = qdt::CopyOf<SessionRecord>(record);
  // What was matched must be what is shown.
  if (KeysOf(&session) != keys) return QDT_TBL_CONTINUE;
  const size_t room = size_t{collect->Limit - collect->Count} * sizeof(SessionRecord);
  auto *const end = static_cast<char *>(collect->Records) + size_t{collect->Count} * sizeof(SessionRecord);
  if (qdt::memcpy_s(end, room, &session, sizeof(session)) != 0) return QDT_TBL_STOP;
  collect->Bytes += sizeof(SessionRecord);
  ++collect->Count;
  return QDT_TBL_CONTINUE;
}

int32_t CollectNext(void *record, void *context) {
  auto *const search = static_cast<SessionSearch *>(context);
  return Collect(record, &search->collect, search->text);
}

void PrintKeys(Text &text, const SessionRecord &e) {
  SessionKey positive, negative;
  if (!ReadEngineMemory(e.positiveKey, &positive, sizeof(positive)) ||
      !ReadEngineMemory(e.negativeKey, &negative, sizeof(negative))) {
    return;
  }
  text.Print<"Session POS key:\n  PosSrcIp     :  0x%08x\n  PosDstIp     :  0x%08x\n">(positive.source,
                                                                                       positive.destination);
  text.Print<"  PosSrcPort   :  %hu\n  PosDstPort   :  %hu\n  PosProtocol  :  %hhu\n">(
      positive.sourcePort, positive.destinationPort, positive.protocol);
  text.Print<
      "Session NEG key:\n  NegSrcIp     :  0x%08x\n  NegDstIp     :  0x%08x\n  NegSrcPort   :  %hu\n"
      "  NegDstPort   :  %hu\n  NegProtocol  :  %hhu\n">(negative.source, negative.destination,
                                                         negative.sourcePort, negative.destinationPort,
                                                         negative.protocol);
}

void PrintNode(Text &text, const SessionRecord &e) {
  text.Print<
      "SessionNode:\n  Valid      :  %u\n  SessIdx    :  %u\n  TimeStamp  :  %u\n  AgingTime  :  %u\n"
      "  IsIpv6     :  %u\n">(e.valid, e.index, e.timeStamp, e.agingTime, e.isIpv6);
}

void PrintHttps(Text &text, const SessionRecord &e) {
  qdt::HttpsSubSession https;
  if (text.failed() || !ReadEngineMemory(e.https, &https, sizeof(https))) return;
  text.Print<
      "HttpsSession:\n  SessIdx   :  %u\n  FwdIfIdx  :  %u\n  DstMac    :  %02x:%02x:%02x:%02x:%02x:%02x\n"
      "  SrcMac    :  %02x:%02x:%02x:%02x:%02x:%02x\n  VlanId    :  %u\n  EthType   :  %u\n">(
      https.index, https.fwdIfIndex, qdt::Mac(https.dmac), qdt::Mac(https.smac), https.vlanId, https.ethType);
}

void PrintNat(Text &text, const SessionRecord &e) {
  text.Print<"NatSession:\n">();
  qdt::Section<20> nat(text);
  nat.Line<"SessIdx">(e.natIndex);
  nat.Line<"ParentSessionIndex">(e.parentSessionIndex);
  nat.Line<"ServerMapIndex">(e.serverMapIndex);
  nat.Line<"PolicyId">(e.natPolicyId);
  nat.Line<"AgingTime">(e.natAgingTime);
  nat.Line<"PosNewSip", "0x%08x">(e.positive.source);
  nat.Line<"PosNewDip", "0x%08x">(e.positive.destination);
  nat.Line<"PosNewSport">(e.positive.sourcePort);
  nat.Line<"PosNewDport">(e.positive.destinationPort);
  nat.Line<"NegNewSip", "0x%08x">(e.negative.source);
  nat.Line<"NegNewDip", "0x%08x">(e.negative.destination);
  nat.Line<"NegNewSport">(e.negative.sourcePort);
  nat.Line<"NegNewDport">(e.negative.destinationPort);
}

void PrintIptables(Text &text, const SessionRecord &e) {
  qdt::IptablesSubSession iptables;
  if (text.failed() || !ReadEngineMemory(e.iptables, &iptables, sizeof(iptables))) return;
  text.Print<
      "IptablesSession:\n  SessIdx             :  %u\n  DstIp               :  0x%08x\n"
      "  DstPort             :  %u\n  Rsv1                :  %u\n">(
      iptables.index, iptables.destination, iptables.destinationPort, iptables.reserved10);
}

}  // namespace

int32_t SessionNodeParamMultiIp(const SessionSearchKey *search, uint32_t source, uint32_t destination,
                                const void *sessionKey) {
  const auto &key = *static_cast<const SessionKey *>(sessionKey);
  const bool addresses = source == htonl(key.source) && destination == htonl(key.destination);
  const bool protocol = search->Protocol == key.protocol;
  if (search->SrcPort != 0) {
    return ToResult(addresses && protocol && search->SrcPort == key.sourcePort && search->DstPort != 0 &&
                    search->DstPort == key.destinationPort && search->Protocol != 0);
  }
  return ToResult(addresses && search->DstPort == 0 && (search->Protocol == 0 || protocol));
}

int32_t SessionNodeParamSingleIp(const SessionSearchKey *search, const char *word, const char *,
                                 uint32_t address, const void *sessionKey) {
  const auto &key = *static_cast<const SessionKey *>(sessionKey);
  if (address == INADDR_NONE || search->SrcPort != 0 || search->DstPort != 0 || search->Protocol != 0)
    return kNoMatch;
  // Most keys have other addresses: what the word says is looked at last.
  return ToResult((address == htonl(key.source) && std::strcmp(word, "sip") == 0) ||
                  (address == htonl(key.destination) && std::strcmp(word, "dip") == 0));
}

int32_t SessionNodeMatchHashNode(const SessionSearchKey *search, const void *sessionKey) {
  return SearchText().Match(*search, static_cast<const SessionKey *>(sessionKey));
}

int32_t SessionNodeSearchMatch(void *record, void *context) {
  SearchText text;
  return Collect(record, static_cast<SessionCollect *>(context), text);
}

NQE_TABLE_SEARCH(Session) {
  SessionSearchKey key{};
  if (qdt::strcpy_s(key.Text, sizeof(key.Text) - 1, search.key1) != 0) return QDT_TBL_FORMAT;
  key.SrcPort = search.key2;
  key.DstPort = search.key3;
  key.Protocol = search.key4;
  uint32_t limit = kDefaultLimit;
  if (HasPrefix(search.key1, "num")) {
    if (const int32_t code = ReadLimit(search.key1, &limit); code != 0) return code;
  }
  if (!search.Allocate(size_t{limit} * sizeof(SessionRecord))) return QDT_TBL_NO_MEMORY;
  const qdt::EngineMemoryScope memory;  // for who asks the operation and not the command
  SessionSearch walk = {{key, *search.record, 0, 0, limit}, {}};
  if (TbmTblTrav(qdt::kEngineInstance, qdt::kTableSession, CollectNext, &walk) != 0) {
    search.Release();
    return QDT_TBL_FAIL;
  }
  *search.recordLen = walk.collect.Bytes;
  return 0;
}

NQE_TABLE_FORMAT_EACH(Session, SessionRecord) {
  PrintKeys(text, e);
  PrintNode(text, e);
  PrintHttps(text, e);
  PrintNat(text, e);
  PrintIptables(text, e);
  if (text.failed()) return text.Fail(QDT_TBL_FAIL);
  text.Print<"\n">();
}

QDT_TABLE_PIECE(NqeTableParseSessKey) {
  return qdt::FormatPiece<qdt::SessionRecord, PrintKeys>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableParseSessNode) {
  return qdt::FormatPiece<qdt::SessionRecord, PrintNode>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableParseHttpsSess) {
  return qdt::FormatPiece<qdt::SessionRecord, PrintHttps>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableParseNatSess) {
  return qdt::FormatPiece<qdt::SessionRecord, PrintNat>(out, room, entry);
}

QDT_TABLE_PIECE(NqeTableParseIptablesSess) {
  return qdt::FormatPiece<qdt::SessionRecord, PrintIptables>(out, room, entry);
}
