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
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return nullptr;
  return std::unique_ptr<FileSink>(new FileSink(file));
}

FileSink::~FileSink() { close(); }

bool FileSink::flush() {
  if (buffer_.empty() || failed_) return !failed_;
  if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) failed_ = true;
  flushed_ += buffer_.size();
  buffer_.clear();
  return !failed_;
}

bool FileSink::write(const void* data, std::size_t size) {
  if (file_ == nullptr || failed_) return false;
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  if (buffer_.size() + size > kBufferSize && !flush()) return false;
  if (size >= kBufferSize) {
    if (std::fwrite(bytes, 1, size, file_) != size) failed_ = true;
    flushed_ += size;
    return !failed_;
  }
  buffer_.insert(buffer_.end(), bytes, bytes + size);
  return true;
}

bool FileSink::patch(std::uint64_t offset, const void* data, std::size_t size) {
  if (file_ == nullptr || failed_ || offset + size > position()) return false;
  if (offset >= flushed_) {
    std::memcpy(buffer_.data() + (offset - flushed_), data, size);
    return true;
  }
  if (!flush()) return false;
  bool ok = fseeko(file_, static_cast<off_t>(offset), SEEK_SET) == 0 && std::fwrite(data, 1, size, file_) == size &&
            fseeko(file_, 0, SEEK_END) == 0;
  if (!ok) failed_ = true;
  return ok;
}

bool FileSink::close() {
  if (file_ == nullptr) return !failed_;
  flush();
  if (std::fclose(file_) != 0) failed_ = true;
  file_ = nullptr;
  return !failed_;
}

}  // namespace qm
