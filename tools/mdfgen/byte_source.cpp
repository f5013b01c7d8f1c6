#include "tools/mdfgen/byte_source.h"

#include <algorithm>
#include <cstring>

#include "platform/file_system.h"

namespace qm {

bool MemorySource::readAt(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > bytes_.size() || count > bytes_.size() - offset) return false;
  std::memcpy(out, bytes_.data() + offset, count);
  return true;
}

std::unique_ptr<FileSource> FileSource::open(const std::string& path) {
  std::optional<File> file = File::open(path.c_str(), FileAccess::kRead);
  PathFacts facts;
  if (!file || !file->facts(&facts) || facts.type != PathType::kFile) return nullptr;
  return std::unique_ptr<FileSource>(new FileSource(std::move(*file), static_cast<std::uint64_t>(facts.size)));
}

bool FileSource::readAt(std::uint64_t offset, void* out, std::size_t count) const {
  if (offset > size_ || count > size_ - offset) return false;
  return file_.readAt(offset, out, count) == static_cast<std::int64_t>(count);
}

RangeReader::RangeReader(const ByteSource& source, std::uint64_t start, std::uint64_t end)
    : source_(source), start_(start), end_(std::max(start, std::min(end, source.size()))) {}

bool RangeReader::fill() {
  constexpr std::uint64_t kChunk = 1 << 20;
  std::uint64_t keep_from = position_ - buffer_start_;
  std::vector<unsigned char> kept(buffer_.begin() + static_cast<std::ptrdiff_t>(keep_from), buffer_.end());
  std::uint64_t have_end = buffer_start_ + buffer_.size();
  std::uint64_t n = std::min<std::uint64_t>(kChunk, end_ - start_ - have_end);
  if (n == 0) return false;
  kept.resize(kept.size() + n);
  if (!source_.readAt(start_ + have_end, kept.data() + (kept.size() - n), n)) return false;
  buffer_ = std::move(kept);
  buffer_start_ = position_;
  return true;
}

bool RangeReader::read(void* out, std::size_t count) {
  if (count == 0) return true;
  if (count > remaining()) return false;
  while (buffer_start_ + buffer_.size() < position_ + count) {
    if (!fill()) return false;
  }
  std::memcpy(out, buffer_.data() + (position_ - buffer_start_), count);
  position_ += count;
  return true;
}

bool RangeReader::skip(std::uint64_t count) {
  if (count > remaining()) return false;
  position_ += count;
  if (position_ > buffer_start_ + buffer_.size()) {
    buffer_.clear();
    buffer_start_ = position_;
  }
  return true;
}

}  // namespace qm
