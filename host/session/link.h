#ifndef HOST_SESSION_LINK_H_
#define HOST_SESSION_LINK_H_

#include <cstddef>
#include <cstdint>

namespace qdt::host {

// What omad and the process of one session say to each other, in frames (host/wire/protocol.h) of fields
// (host/session/fields.h). The session reads what a stranger sends and has no rights; omad believes nothing
// of it but the user, and that only from those who may name one.

// Session to omad.
enum LinkAsk : uint32_t {
  kAskHello = 1,  // user ("" for the one whose process it is), client's address, protocol: first, and once
  kAskCall,       // namespace and name of an operation, then name and value of each parameter; of <get> each
             // "want" is a place that the filter looks at (host/session/places.h), all when there is none
  kAskNext,   // the piece of state data has been passed on: the next may come
  kAskEvent,  // the notification has been passed on: the next may come
  kAskLeave,  // the client closes the session
};

// omad to session. A call is answered by kTellOk, kTellError, kTellText ... kTellTextEnd or kTellData ...
// kTellDataEnd, and the next call comes after that. kTellEvent comes between answers, to a session that has
// subscribed, and kTellBye at any time. A session that wants no more of an answer's data just calls again.
enum LinkTell : uint32_t {
  kTellWelcome = 1,  // session's number, limit of a message's bytes, then its capabilities
  kTellOk,
  kTellError,    // an element rpc-error
  kTellText,     // not fields: a piece of text
  kTellTextEnd,  // the element that the text is the content of: its namespace and name
  kTellData,  // the list keys of the part (see StatePiece), then namespace, path and body of each record; the
              // next piece comes when the session asks for it
  kTellDataEnd,
  kTellEvent,  // time, and the notification's element; a third field, empty, where no filter is to hold it
               // back; the next one comes when the session asks for it
  kTellBye,    // why the session ends; the connection is closed behind it
};

constexpr char kLinkProtocol[] = "2";
// Bytes of one call, all of its parameters together.
constexpr size_t kCallLimit = 64 << 10;
constexpr size_t kCallFields = 256;
// Bytes of a piece of an answer.
constexpr size_t kPieceSize = 64 << 10;

}  // namespace qdt::host

#endif  // HOST_SESSION_LINK_H_
