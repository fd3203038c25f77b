#include "host/capture/capture_file.h"

#include <fcntl.h>
#include <pcap/pcap.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "host/base/fd.h"

namespace qdt::host {
namespace {

// Only regular files: of a pipe the engine would wait for its writer.
FILE *OpenRegular(const std::string &path) {
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd.ok()) throw SystemError(path);
  struct stat status {};
  if (fstat(fd.get(), &status) != 0) throw SystemError(path);
  if (!S_ISREG(status.st_mode))
    throw HostError(path + ": not a regular file; name a file of captured packets");
  FILE *file = fdopen(fd.get(), "rb");
  if (file == nullptr) throw SystemError(path);
  fd.Release();
  return file;
}

}  // namespace

CaptureFile::CaptureFile(const std::string &path) : path_(path) {
  FILE *file = OpenRegular(path);
  char problem[PCAP_ERRBUF_SIZE] = "";
  // Closed with the handle.
  handle_ = PcapHandle(pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, problem));
  if (handle_.get() == nullptr) {
    std::fclose(file);
    throw HostError(path + ": not a file of captured packets: " + problem);
  }
  linkType_ = LinkTypeOf(handle_, path);
  Advance();
  if (isDamaged_) throw HostError(ending_);
}

void CaptureFile::Advance() {
  pcap_pkthdr *header = nullptr;
  const u_char *data = nullptr;
  const int status = pcap_next_ex(handle_.get(), &header, &data);
  next_.reset();
  if (status == 1) {
    ++count_;
    // A time that overflows is a wrong time, as any other number may be.
    const auto time =
        static_cast<uint64_t>(header->ts.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(header->ts.tv_usec);
    // A packet is no shorter than what was kept of it.
    next_ = CapturedBytes{.data = data,
                          .captured = header->caplen,
                          .wire = std::max(header->len, header->caplen),
                          .time = time};
    return;
  }
  isDamaged_ = status != PCAP_ERROR_BREAK;
  ending_ = path_ + ": ";
  ending_ += isDamaged_ ? std::string("damaged: ") + pcap_geterr(handle_.get()) : "end of file";
  ending_ += "; " + std::to_string(count_) + (count_ == 1 ? " packet was" : " packets were") + " read";
}

}  // namespace qdt::host
