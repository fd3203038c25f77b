// Requests of strangers: their bytes through the reader, what was read through the guard and every route, on
// a running engine. What a route asks of another program fails here, as it does where that is not installed.

#include <string>

#include "fuzz/lab.h"
#include "host/console/console.h"
#include "host/web/guard.h"
#include "host/web/http_reader.h"
#include "host/web/lost_pages.h"

namespace {

using namespace qdt::host;

struct Server {
  Server() {
    WatchLostPages();
    console.AddTo(&routes);
  }

  const WebEngines::Named paths[2] = {{qdt::fuzz::Lab::Get().arena(), false}, {"/no/such/arena", true}};
  WebEngines engines{paths};
  Console console{{"/no/such/folder/", {}, true, false, {}}, &engines};
  Routes routes;
  const Guard guard{{{"localhost"}, "0123456789abcdef", true, false}};
};

void Take(const WebAnswer &answer) {
  AnswerHead(answer, static_cast<int64_t>(answer.Body().size()), true);
  if (answer.stream) answer.stream([](std::string_view) { return false; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Server server;
  // In two pieces, cut where the first byte says.
  if (size == 0) return 0;
  const std::vector<uint8_t> own = qdt::fuzz::OwnCopy(data + 1, size - 1);
  const std::string text(own.begin(), own.end());
  const size_t cut = text.size() * data[0] / 256;
  HttpReader reader({});
  std::string bytes = text.substr(0, cut);
  HttpReader::Result result = reader.Read(&bytes);
  bytes += text.substr(cut);
  if (result == HttpReader::Result::kMore) result = reader.Read(&bytes);
  if (result == HttpReader::Result::kRefused) Take(reader.refusal());
  if (result != HttpReader::Result::kWhole) return 0;
  Take(server.guard.Answer(server.routes, reader.request()));
  // Most requests do not know the server's name or token.
  Take(server.routes.Answer(reader.request()));
  return 0;
}
