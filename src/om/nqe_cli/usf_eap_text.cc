#include "src/om/nqe_cli/usf_eap_text.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "src/om/common/section.h"

namespace qdt {
namespace {

// The two texts as one label: the lines of both directions differ in the first word of their labels only.
template <format::Format First, format::Format Second>
consteval auto Join() {
  char label[First.kLength + Second.kLength + 1]{};
  std::copy_n(First.text, First.kLength, label);
  std::copy_n(Second.text, Second.kLength, label + First.kLength);
  return format::Format(label);
}

// The last packet of one direction, "Up" or "Down". "UpIsEncryped" and "DownIsEncryped" are spelt as all who
// read them know them.
template <format::Format Direction, size_t kWidth>
void PrintExtension(Text &text, const EapExtension &e) {
  Section<kWidth> s(text);
  s.template Line<Join<Direction, "Code">()>(e.code);
  s.template Line<Join<Direction, "Id">()>(e.id);
  s.template Line<Join<Direction, "Type">()>(e.type);
  s.template Line<Join<Direction, "Rsv">()>(e.reserved3);
  s.template Line<Join<Direction, "Len">()>(e.length);
  s.template Line<Join<Direction, "SslFlags">()>(e.sslFlags);
  s.template Line<Join<Direction, "IsFragmentErr">()>(e.isFragmentError);
  s.template Line<Join<Direction, "IsEncryped">()>(e.isEncrypted);
  s.template Line<Join<Direction, "Rsv1">()>(e.reserved9);
  s.template Line<Join<Direction, "TlsV1Offset">()>(e.tlsOffset);
  s.template Line<Join<Direction, "HandshakeOffset">()>(e.handshakeOffset);
  s.template Line<Join<Direction, "TlsV1Flags">()>(e.tlsFlags);
  s.template Line<Join<Direction, "HandshakeFlags">()>(e.handshakeFlags);
  s.template Line<Join<Direction, "TlsV1Header[0]">()>(e.tlsHeader[0]);
  s.template Line<Join<Direction, "TlsV1Header[1]">()>(e.tlsHeader[1]);
  s.template Line<Join<Direction, "TlsV1Header[2]">()>(e.tlsHeader[2]);
  s.template Line<Join<Direction, "TlsV1Header[3]">()>(e.tlsHeader[3]);
  s.template Line<Join<Direction, "TlsV1Header[4]">()>(e.tlsHeader[4]);
  s.template Line<Join<Direction, "HandshakeHeader[0]">()>(e.handshakeHeader[0]);
  s.template Line<Join<Direction, "HandshakeHeader[1]">()>(e.handshakeHeader[1]);
  s.template Line<Join<Direction, "HandshakeHeader[2]">()>(e.handshakeHeader[2]);
  s.template Line<Join<Direction, "HandshakeHeader[3]">()>(e.handshakeHeader[3]);
}

void PrintItem(Text &text, int32_t number, const EapLogItem &item) {
  text.Print<
      " StaEapLog item:\n"
      "  Item            :  %d\n"
      "  PktType         :  %u\n"
      "  Rsv             :  %u\n"
      "  PktSize         :  %u\n"
      "  TimeCost        :  %u\n"
      "  EapolType       :  %u\n"
      "  EapCode         :  %u\n"
      "  EapType         :  %u\n"
      "  EapId           :  %u\n"
      "  TlsV1Flags      :  %u\n"
      "  HandshakeFlags  :  %u\n">(number, item.packetType, item.reserved1, item.packetSize, item.timeCost,
                                   item.eapolType, item.eapCode, item.eapType, item.eapId, item.tlsFlags,
                                   item.handshakeFlags);
}

}  // namespace

void PrintEapLog(Text &text, const EapLogEntry &e) {
  const std::string_view identity(e.identity, strnlen(e.identity, sizeof(e.identity)));
  text.Print<
      " StaEapLog data:\n"
      "  RadioId             :  %u\n"
      "  VapIndex            :  %u\n"
      "  AuthId              :  %u\n"
      "  AuthStatus          :  %u\n"
      "  CurLogNum           :  %u\n"
      "  Identify            :  %s\n">(e.radioId, e.vapIndex, e.authId, e.authStatus, e.itemCount, identity);
  text.Print<" UpLastEapExt data:\n">();
  PrintExtension<"Up", 22>(text, e.lastUp);
  text.Print<" DownLastEapExt data:\n">();
  PrintExtension<"Down", 24>(text, e.lastDown);
  // A count above the log's room can only be damage: what the log holds is shown all the same.
  for (uint32_t i = 0; i < e.itemCount && i < kMaxEapLogItems; ++i) {
    PrintItem(text, static_cast<int32_t>(i), e.item[i]);
  }
}

}  // namespace qdt
