#pragma once
// Random-access reading of a file to be checked, from disk or from memory.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/file.h"

namespace qm {

class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual std::uint64_t size() const = 0;
  // True only when all `count` bytes were read.
  virtual bool readAt(std::uint64_t offset, void* out, std::size_t count) const = 0;
};

class MemorySource : public ByteSource {
 public:
  explicit MemorySource(std::string_view bytes) : bytes_(bytes) {}
  std::uint64_t size() const override { return bytes_.size(); }
  bool readAt(std::uint64_t offset, void* out, std::size_t count) const override;

 private:
  std::string_view bytes_;
};

class FileSource : public ByteSource {
 public:
  static std::unique_ptr<FileSource> open(const std::string& path);
  std::uint64_t size() const override { return size_; }
  bool readAt(std::uint64_t offset, void* out, std::size_t count) const override;

 private:
  FileSource(File file, std::uint64_t size) : file_(std::move(file)), size_(size) {}
  File file_;
  std::uint64_t size_;
};

// Sequential reading of a byte range through a large buffer, for walking records.
class RangeReader {
 public:
  RangeReader(const ByteSource& source, std::uint64_t start, std::uint64_t end);
  bool read(void* out, std::size_t count);
  bool skip(std::uint64_t count);
  std::uint64_t position() const { return position_; }  // relative to the range start
  std::uint64_t remaining() const { return end_ - start_ - position_; }

 private:
  bool fill();

  const ByteSource& source_;
  std::uint64_t start_;
  std::uint64_t end_;
  std::uint64_t position_ = 0;
  std::vector<unsigned char> buffer_;
  std::uint64_t buffer_start_ = 0;  // range position of buffer_[0]
};

}  // namespace qm
