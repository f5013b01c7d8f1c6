// Times the compressed and encrypted container layers on a logger-like payload held in memory:
// the incremental and the one-pass LZSS decoder side by side on the same container (MB/s of
// output), and AES-256-GCM decryption (MB/s of ciphertext). Each figure is the median of
// several runs, as the machine may be busy.
// Usage: qm_decode_bench [megabytes=100] [window_bits=11] [lookahead_bits=4] [runs=5]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "container/compressed_stream.h"
#include "container/container_header.h"
#include "container/decoder_stream.h"
#include "container/encrypted_stream.h"
#include "container/lzss_one_pass.h"
#include "platform/process_usage.h"
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
  qm::ProcessorTime usage = qm::processorTimeSoFar();

  double wallSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
  }
  double userSeconds() const { return qm::processorTimeSoFar().user_seconds - usage.user_seconds; }
  double systemSeconds() const { return qm::processorTimeSoFar().system_seconds - usage.system_seconds; }
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

// Runs `step` several times; prints and returns the median MB/s over `megabytes` (wall clock).
// The step marks the part to time with watch.start() and watch.stop(), so that setting up
// its input and checking its output stay out of the figure.
struct Median {
  double megabytes_per_second = 0;
  bool ok = true;
};

struct Stopwatch {
  Timer timer;
  double wall = 0;
  double cpu = 0;
  void start() { timer = Timer(); }
  void stop() {
    wall = timer.wallSeconds();
    cpu = timer.userSeconds() + timer.systemSeconds();
  }
};

template <typename Step>
Median timeMedian(const char* what, double megabytes, int runs, Step step) {
  std::vector<std::pair<double, double>> times;  // wall, cpu
  Median median;
  for (int i = 0; i < runs; ++i) {
    Stopwatch watch;
    median.ok = step(watch) && median.ok;
    times.emplace_back(watch.wall, watch.cpu);
  }
  std::sort(times.begin(), times.end());
  auto [wall, cpu] = times[times.size() / 2];
  median.megabytes_per_second = megabytes / wall;
  std::printf("%-22s %8.1f MB/s  (median of %d: %.3f s, cpu %.3f s)%s\n", what, median.megabytes_per_second,
              runs, wall, cpu, median.ok ? "" : "  WRONG RESULT");
  return median;
}

bool sameBytes(const std::uint8_t* data, std::uint64_t size, const std::string& expected) {
  return size == expected.size() && std::memcmp(data, expected.data(), expected.size()) == 0;
}

long peakMegabytes() { return static_cast<long>(qm::peakResidentBytes() >> 20); }

}  // namespace

int main(int argc, char** argv) {
  std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100;
  int window_bits = argc > 2 ? std::atoi(argv[2]) : 11;
  int lookahead_bits = argc > 3 ? std::atoi(argv[3]) : 4;
  int runs = argc > 4 ? std::max(1, std::atoi(argv[4])) : 5;
  const std::string payload = loggerPayload(megabytes << 20);
  const double mb = static_cast<double>(payload.size()) / 1e6;
  std::printf("payload %.1f MB, window bits %d, lookahead bits %d, %d runs\n", mb, window_bits, lookahead_bits, runs);

  Timer timer;
  std::string compressed = qm::test::makeCompressedContainer(payload, 1, window_bits, lookahead_bits);
  report("encode", mb, timer);
  std::printf("compressed to %.1f MB (%.1f%%)\n", static_cast<double>(compressed.size()) / 1e6,
              100.0 * static_cast<double>(compressed.size()) / static_cast<double>(payload.size()));
  const auto* bits = reinterpret_cast<const std::uint8_t*>(compressed.data()) + qm::kCompressedPayloadOffset;
  const std::size_t bits_size = compressed.size() - qm::kCompressedPayloadOffset;
  Median incremental = timeMedian("LZSS incremental", mb, runs, [&](Stopwatch& watch) {
    auto source = std::make_unique<qm::MemoryStream>();
    source->write(bits, bits_size);
    source->seek(0, qm::kSeekSet);
    auto decoder = qm::DecoderStream::create(std::move(source), window_bits, lookahead_bits);
    qm::MemoryStream out;
    if (!decoder) return false;
    watch.start();
    qm::copyAll(decoder.get(), &out);
    watch.stop();
    return sameBytes(out.data(), out.size(), payload);
  });
  Median one_pass = timeMedian("LZSS one-pass", mb, runs, [&](Stopwatch& watch) {
    qm::LzssOutput out;
    watch.start();
    bool decoded = qm::decodeLzssWhole(bits, bits_size, window_bits, lookahead_bits, 0, &out);
    watch.stop();
    return decoded && sameBytes(out.bytes.get(), out.size, payload);
  });
  std::printf("one-pass / incremental: %.1fx\n", one_pass.megabytes_per_second / incremental.megabytes_per_second);
  Median layer = timeMedian("compressed layer", mb, runs, [&](Stopwatch& watch) {
    auto inner = streamOf(compressed);
    qm::ContainerHeader header{};
    qm::detectContainer(inner.get(), &header);
    watch.start();
    auto opened = qm::openCompressed(std::move(inner), header);
    watch.stop();
    return opened && sameContent(opened.get(), payload);
  });
  compressed = std::string();

  timer = Timer();
  std::string encrypted = qm::test::makeEncryptedContainer(payload, 1, "bench password", 1000);
  report("encrypt", mb, timer);
  // The key derivation (1000 iterations) is part of each run; it takes well under a millisecond.
  Median decrypt = timeMedian("AES-256-GCM decrypt", mb, runs, [&](Stopwatch& watch) {
    auto inner = streamOf(encrypted);
    qm::ContainerHeader header{};
    qm::detectContainer(inner.get(), &header);
    watch.start();
    auto opened = qm::openEncrypted(std::move(inner), header, "bench password");
    watch.stop();
    return opened && sameContent(opened.get(), payload);
  });
  std::printf("peak resident %ld MB\n", peakMegabytes());
  return incremental.ok && one_pass.ok && layer.ok && decrypt.ok ? 0 : 1;
}
