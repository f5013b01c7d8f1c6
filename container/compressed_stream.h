#pragma once
// The layer over a compressed container (type 34): the whole payload is decoded into memory
// when the layer is built, and the layer is then a stream over the decoded bytes.
#include <cstdint>
#include <memory>

#include "base/failure.h"
#include "container/container_header.h"
#include "stream/memory_stream.h"
#include "stream/stream.h"

namespace qm {

inline constexpr std::int64_t kCompressedPayloadOffset = 28;

class CompressedStream : public Stream {
 public:
  CompressedStream(const ContainerHeader& header, std::uint32_t window_size,
                   std::uint8_t lookahead_bits)
      : header_(header), window_size_(window_size), lookahead_bits_(lookahead_bits) {}

  std::int64_t read(void* buffer, std::size_t count) override;
  std::int64_t write(const void* buffer, std::size_t count) override;
  std::int64_t tell() override;
  std::int64_t seek(std::int64_t offset, int origin) override;
  // Releases the decoded content and returns its close status; the layer stays, empty.
  int close() override;
  ByteView contents() override { return content_ ? content_->contents() : ByteView{}; }

  const ContainerHeader& header() const { return header_; }
  std::uint32_t windowSize() const { return window_size_; }
  std::uint8_t lookaheadBits() const { return lookahead_bits_; }
  MemoryStream* content() { return content_.get(); }

 private:
  ContainerHeader header_;
  std::uint32_t window_size_;
  std::uint8_t lookahead_bits_;
  std::unique_ptr<MemoryStream> content_ = std::make_unique<MemoryStream>();
};

// Builds the layer, or null. The inner stream is always consumed: once decoding starts it is
// closed, and on an earlier refusal it is released with the call. An inner stream that holds
// its content in memory is decoded in one pass; one that must be read goes through the
// incremental decoder, where a read error ends the content where it happened without failing
// the layer. Running out of memory for the decoded bytes fails it. The result is positioned at
// the end of its content. Why it failed goes to `why`, when given.
std::unique_ptr<Stream> openCompressed(std::unique_ptr<Stream> inner, const ContainerHeader& header,
                                       Failure* why = nullptr);

}  // namespace qm
