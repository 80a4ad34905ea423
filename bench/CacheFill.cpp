// How fast the cache fills, and how long a Read takes meanwhile.
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <limits>
#include <stdexcept>
#include <thread>

#include "CacheCommands.h"
#include "CacheReader.h"

namespace {

constexpr size_t kDiskBlockBytes = 524288;
// A player of media of 8 MB/s, four times what a disc of films has: the more Reads, the more is seen.
constexpr uint32_t kPlayerBlockBytes = 8192;
constexpr auto kPlayerStep = std::chrono::milliseconds(1);

struct CloseFile {
  void operator()(FILE* file) const { fclose(file); }
};

void WriteFlushed(FILE* file, int64_t bytes) {
  const std::string block(kDiskBlockBytes, 'z');
  for (int64_t left = bytes; left > 0; left -= static_cast<int64_t>(kDiskBlockBytes)) {
    if (fwrite(block.data(), 1, kDiskBlockBytes, file) != kDiskBlockBytes || fflush(file) != 0) {
      throw std::runtime_error("the disk cannot be written");
    }
  }
}

}  // namespace

nlohmann::json MeasureDisk(int64_t bytes) {
  const ScratchFolder folder;
  const std::unique_ptr<FILE, CloseFile> file(fopen((folder.Prefix() + "file").c_str(), "wb"));
  if (file == nullptr) {
    throw std::runtime_error("no file can be made in " + folder.Prefix());
  }
  const auto start = Clock::now();
  WriteFlushed(file.get(), bytes);
  const double seconds = MillisecondsSince(start) / 1000;
  fsync(fileno(file.get()));
  return {{"bytes", bytes}, {"seconds", seconds}, {"syncedSeconds", MillisecondsSince(start) / 1000}};
}

nlohmann::json MeasureFill(const std::string& url, bool reads) {
  CacheReader reader({url, Ahead::kEverything});
  const auto start = Clock::now();
  reader.Open();
  int64_t bytes = 0;
  if (reads) {
    bytes = reader.ReadOn(std::numeric_limits<int64_t>::max());
  } else {
    reader.AwaitFull();
    bytes = reader.Length();
  }
  const double seconds = MillisecondsSince(start) / 1000;
  if (bytes != reader.Length()) {
    throw std::runtime_error("not the whole stream came");
  }
  return {{"bytes", bytes}, {"seconds", seconds}};
}

nlohmann::json MeasureReadLatency(const std::string& url) {
  CacheReader reader({url, Ahead::kEverything});
  std::vector<char> buffer(kPlayerBlockBytes);
  std::vector<double> samples;
  int64_t empty = 0;
  reader.Open();
  reader.AwaitFirstByte();
  const auto start = Clock::now();
  auto due = start;
  bool more = true;
  while (more && !reader.IsFull()) {
    due += kPlayerStep;
    std::this_thread::sleep_until(due);
    uint32_t count = 0;
    const auto called = Clock::now();
    more = reader.Look(buffer.data(), kPlayerBlockBytes, &count);
    samples.push_back(MillisecondsSince(called));
    empty += count == 0 ? 1 : 0;
  }
  const double seconds = MillisecondsSince(start) / 1000;
  nlohmann::json figures = Summarize(std::move(samples));
  figures["empty"] = empty;
  figures["seconds"] = seconds;
  return figures;
}
