#include "tools/mdfgen/byte_sink.h"

#include <cstring>

namespace qm {

bool ByteSink::writeZeros(std::size_t count) {
  static const unsigned char kZeros[64] = {};
  while (count > 0) {
    std::size_t n = count < sizeof kZeros ? count : sizeof kZeros;
    if (!write(kZeros, n)) return false;
    count -= n;
  }
  return true;
}

bool ByteSink::alignTo8() { return writeZeros(static_cast<std::size_t>((8 - position() % 8) % 8)); }

bool StringSink::write(const void* data, std::size_t size) {
  bytes_.append(static_cast<const char*>(data), size);
  return true;
}

bool StringSink::patch(std::uint64_t offset, const void* data, std::size_t size) {
  if (offset > bytes_.size() || size > bytes_.size() - offset) return false;
  std::memcpy(bytes_.data() + offset, data, size);
  return true;
}

std::unique_ptr<FileSink> FileSink::create(const std::string& path) {
  std::optional<File> file = File::open(path.c_str(), FileAccess::kWrite);
  if (!file) return nullptr;
  return std::unique_ptr<FileSink>(new FileSink(std::move(*file)));
}

FileSink::~FileSink() { close(); }

bool FileSink::flush() {
  if (buffer_.empty() || failed_) return !failed_;
  if (file_.write(buffer_.data(), buffer_.size()) != buffer_.size()) failed_ = true;
  flushed_ += buffer_.size();
  buffer_.clear();
  return !failed_;
}

bool FileSink::write(const void* data, std::size_t size) {
  if (!file_.isOpen() || failed_) return false;
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  if (buffer_.size() + size > kBufferSize && !flush()) return false;
  if (size >= kBufferSize) {
    if (file_.write(bytes, size) != size) failed_ = true;
    flushed_ += size;
    return !failed_;
  }
  buffer_.insert(buffer_.end(), bytes, bytes + size);
  return true;
}

bool FileSink::patch(std::uint64_t offset, const void* data, std::size_t size) {
  if (!file_.isOpen() || failed_ || offset + size > position()) return false;
  if (offset >= flushed_) {
    std::memcpy(buffer_.data() + (offset - flushed_), data, size);
    return true;
  }
  // Straight to its place; the sequential writes carry on at the end.
  if (!flush()) return false;
  bool ok = file_.flush() && file_.writeAt(offset, data, size);
  if (!ok) failed_ = true;
  return ok;
}

bool FileSink::close() {
  if (!file_.isOpen()) return !failed_;
  flush();
  if (!file_.close()) failed_ = true;
  return !failed_;
}

}  // namespace qm
