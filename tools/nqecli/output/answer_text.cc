#include "tools/nqecli/output/answer_text.h"

#include <rapidjson/reader.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "host/base/throwing_heap.h"

namespace qdt::nqecli {
namespace {

constexpr size_t kPiece = 64 << 10;

// Piece after piece of a text.
class Pieces {
 public:
  explicit Pieces(const AnswerText &text) : text_(text), room_(new char[kPiece]) {}

  // Empty at the end.
  std::string_view Next() {
    const std::string_view piece = text_.Read(offset_, {room_.get(), kPiece});
    offset_ += piece.size();
    return piece;
  }

 private:
  const AnswerText &text_;
  std::unique_ptr<char[]> room_;
  uint64_t offset_ = 0;
};

// An input stream as RapidJSON's reader takes them.
class JsonInput {
 public:
  using Ch = char;

  explicit JsonInput(const AnswerText &text) : pieces_(text) { Fill(); }

  Ch Peek() const { return piece_.empty() ? '\0' : piece_.front(); }
  Ch Take() {
    const Ch c = Peek();
    if (!piece_.empty()) {
      piece_.remove_prefix(1);
      ++taken_;
      if (piece_.empty()) Fill();
    }
    return c;
  }
  size_t Tell() const { return taken_; }

  // Of output streams; the reader names them and uses none.
  Ch *PutBegin() { return nullptr; }
  void Put(Ch) {}
  void Flush() {}
  size_t PutEnd(Ch *) { return 0; }

 private:
  void Fill() { piece_ = pieces_.Next(); }

  Pieces pieces_;
  std::string_view piece_;
  size_t taken_ = 0;
};

}  // namespace

AnswerText::AnswerText() : file_(memfd_create("nqecli-answer", MFD_CLOEXEC)) {
  if (!file_.ok()) throw host::SystemError("cannot make room for an answer");
}

std::string_view AnswerText::Read(uint64_t offset, std::span<char> room) const {
  ssize_t got;
  do {
    got = pread(file_.get(), room.data(), room.size(), static_cast<off_t>(offset));
  } while (got < 0 && errno == EINTR);
  if (got < 0) throw host::SystemError("cannot read an answer");
  return {room.data(), static_cast<size_t>(got)};
}

void AnswerText::ForEachPiece(const std::function<void(std::string_view)> &visit) const {
  Pieces pieces(*this);
  for (std::string_view piece = pieces.Next(); !piece.empty(); piece = pieces.Next()) visit(piece);
}

void AnswerText::ForEachLine(const std::function<void(std::string_view)> &visit) const {
  std::string begun;  // of a line that goes on in the next piece
  ForEachPiece([&](std::string_view piece) {
    for (size_t end = piece.find('\n'); end != piece.npos; end = piece.find('\n')) {
      if (begun.empty()) {
        visit(piece.substr(0, end));
      } else {
        begun += piece.substr(0, end);
        visit(begun);
        begun.clear();
      }
      piece.remove_prefix(end + 1);
    }
    begun += piece;
  });
  if (!begun.empty()) visit(begun);
}

std::string AnswerText::All() const {
  std::string all;
  ForEachPiece([&](std::string_view piece) { all += piece; });
  return all;
}

bool AnswerText::IsJson() const {
  JsonInput input(*this);
  rapidjson::BaseReaderHandler<> nobody;
  rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, host::ThrowingHeap> reader;
  return !reader.Parse<rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag>(input, nobody)
              .IsError();
}

}  // namespace qdt::nqecli
