// Times the compressed and encrypted container layers on a logger-like payload held in memory.
// Usage: qm_decode_bench [megabytes=100] [window_bits=11] [lookahead_bits=4]
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "stream/compressed_stream.h"
#include "stream/container_header.h"
#include "stream/encrypted_stream.h"
#include "stream/memory_stream.h"
#include "tests/support/container_writer.h"
#include "tests/support/lzss_encoder.h"

namespace {

// Interleaved bus records as a logger writes them: record id, growing timestamp, one of a few
// frame ids, length, and data bytes that are partly counters, partly constant, partly noise.
std::string loggerPayload(std::size_t size) {
  std::mt19937 rng(42);
  static const std::uint32_t kFrameIds[] = {0x18FEF100, 0x0CF00400, 0x18FEE900, 0x123, 0x7DF,
                                            0x18FEEE00, 0x0C000003, 0x18FF0A21};
  std::uint8_t counters[8] = {};
  std::uint64_t timestamp = 1'000'000;
  std::string out;
  out.reserve(size + 32);
  while (out.size() < size) {
    std::size_t frame = rng() % 8;
    timestamp += 100 + rng() % 900;
    std::uint8_t record[24] = {};
    record[0] = static_cast<std::uint8_t>(1 + frame % 3);
    std::memcpy(record + 1, &timestamp, 8);
    std::memcpy(record + 9, &kFrameIds[frame], 4);
    record[13] = 8;
    record[14] = ++counters[frame];
    record[15] = static_cast<std::uint8_t>(frame * 17);
    record[16] = static_cast<std::uint8_t>(counters[frame] / 16);
    record[17] = 0xFF;
    record[18] = static_cast<std::uint8_t>(rng() % 4 == 0 ? rng() : 0);
    record[19] = static_cast<std::uint8_t>(rng());
    out.append(reinterpret_cast<char*>(record), sizeof record);
  }
  out.resize(size);
  return out;
}

// Wall-clock and CPU time of one step; the CPU figures stay meaningful on a busy machine.
struct Timer {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  rusage usage = current();

  static rusage current() {
    rusage now{};
    getrusage(RUSAGE_SELF, &now);
    return now;
  }
  static double seconds(const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; }
  double wallSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
  }
  double userSeconds() const { return seconds(current().ru_utime) - seconds(usage.ru_utime); }
  double systemSeconds() const { return seconds(current().ru_stime) - seconds(usage.ru_stime); }
};

std::unique_ptr<qm::MemoryStream> streamOf(const std::string& bytes) {
  auto stream = std::make_unique<qm::MemoryStream>();
  stream->write(bytes.data(), bytes.size());
  stream->seek(0, qm::kSeekSet);
  return stream;
}

bool sameContent(qm::Stream* layer, const std::string& expected) {
  auto* content = dynamic_cast<qm::MemoryStream*>(layer);
  if (auto* compressed = dynamic_cast<qm::CompressedStream*>(layer)) content = compressed->content();
  if (auto* encrypted = dynamic_cast<qm::EncryptedStream*>(layer)) content = encrypted->content();
  return content && content->size() == expected.size() &&
         std::memcmp(content->data(), expected.data(), expected.size()) == 0;
}

void report(const char* what, double megabytes, const Timer& timer) {
  double seconds = timer.wallSeconds();
  std::printf("%-8s %7.1f MB in %6.2f s = %7.1f MB/s  (cpu: user %.2f s, system %.2f s)\n", what,
              megabytes, seconds, megabytes / seconds, timer.userSeconds(), timer.systemSeconds());
}

long peakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100;
  int window_bits = argc > 2 ? std::atoi(argv[2]) : 11;
  int lookahead_bits = argc > 3 ? std::atoi(argv[3]) : 4;
  const std::string payload = loggerPayload(megabytes << 20);
  const double mb = static_cast<double>(payload.size()) / (1 << 20);
  std::printf("payload %.1f MB, window bits %d, lookahead bits %d\n", mb, window_bits, lookahead_bits);

  Timer timer;
  std::string compressed = qm::test::makeCompressedContainer(payload, 1, window_bits, lookahead_bits);
  report("encode", mb, timer);
  std::printf("compressed to %.1f MB (%.1f%%)\n", static_cast<double>(compressed.size()) / (1 << 20),
              100.0 * static_cast<double>(compressed.size()) / static_cast<double>(payload.size()));
  {
    auto inner = streamOf(compressed);
    qm::ContainerHeader header{};
    qm::detectContainer(inner.get(), &header);
    timer = Timer();
    auto layer = qm::openCompressed(std::move(inner), header);
    report("decode", mb, timer);
    if (!layer || !sameContent(layer.get(), payload)) {
      std::printf("decoded content differs\n");
      return 1;
    }
  }
  compressed = std::string();

  timer = Timer();
  std::string encrypted = qm::test::makeEncryptedContainer(payload, 1, "bench password", 1000);
  report("encrypt", mb, timer);
  {
    auto inner = streamOf(encrypted);
    qm::ContainerHeader header{};
    qm::detectContainer(inner.get(), &header);
    timer = Timer();
    auto layer = qm::openEncrypted(inner.get(), header, "bench password");
    report("decrypt", mb, timer);
    if (!layer || !sameContent(layer.get(), payload)) {
      std::printf("decrypted content differs\n");
      return 1;
    }
  }
  std::printf("peak resident %ld MB\n", peakMegabytes());
  return 0;
}
