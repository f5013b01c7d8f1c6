#include "base/small_string.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qm {

SmallString::SmallString() noexcept { std::memset(raw_, 0, sizeof raw_); }

SmallString::SmallString(std::string_view text) : SmallString() {
  if (text.size() > kInlineCapacity) {
    // The long form starts with exactly the capacity the text needs.
    auto* buffer = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    setWord(0, reinterpret_cast<std::uintptr_t>(buffer));
    setWord(1, text.size());
    setWord(2, ~static_cast<std::uint64_t>(text.size()));
  } else {
    if (!text.empty()) std::memcpy(raw_, text.data(), text.size());
    raw_[23] = static_cast<unsigned char>(text.size());
  }
}

SmallString::SmallString(const SmallString& other) : SmallString(other.view()) {}

SmallString::SmallString(SmallString&& other) noexcept {
  std::memcpy(raw_, other.raw_, sizeof raw_);
  std::memset(other.raw_, 0, sizeof other.raw_);
}

SmallString& SmallString::operator=(const SmallString& other) {
  if (this != &other) {
    SmallString copy(other);
    *this = std::move(copy);
  }
  return *this;
}

SmallString& SmallString::operator=(SmallString&& other) noexcept {
  if (this != &other) {
    release();
    std::memcpy(raw_, other.raw_, sizeof raw_);
    std::memset(other.raw_, 0, sizeof other.raw_);
  }
  return *this;
}

SmallString::~SmallString() { release(); }

void SmallString::release() {
  if (!isInline()) std::free(reinterpret_cast<char*>(static_cast<std::uintptr_t>(word(0))));
  std::memset(raw_, 0, sizeof raw_);
}

std::uint64_t SmallString::word(int i) const {
  std::uint64_t value;
  std::memcpy(&value, raw_ + 8 * i, 8);
  return value;
}

void SmallString::setWord(int i, std::uint64_t value) { std::memcpy(raw_ + 8 * i, &value, 8); }

SmallString SmallString::format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  int n = std::vsnprintf(nullptr, 0, fmt, args);
  va_end(args);
  SmallString result;
  if (n > 0) {
    char* tail = result.extend(static_cast<std::size_t>(n));
    std::vsnprintf(tail, static_cast<std::size_t>(n) + 1, fmt, again);
  }
  va_end(again);
  return result;
}

const char* SmallString::data() const {
  return isInline() ? reinterpret_cast<const char*>(raw_)
                    : reinterpret_cast<const char*>(static_cast<std::uintptr_t>(word(0)));
}

char* SmallString::data() { return const_cast<char*>(static_cast<const SmallString*>(this)->data()); }

std::size_t SmallString::size() const { return isInline() ? raw_[23] : word(1); }

std::size_t SmallString::capacity() const { return isInline() ? kInlineCapacity : ~word(2); }

void SmallString::setSize(std::size_t n) {
  if (isInline()) {
    raw_[23] = static_cast<unsigned char>(n);
  } else {
    setWord(1, n);
  }
  data()[n] = '\0';
}

char* SmallString::reserve(std::size_t n) {
  if (isInline()) {
    if (n <= kInlineCapacity) return data();
    auto* buffer = static_cast<char*>(std::malloc(n + 1));
    std::memcpy(buffer, raw_, 23);
    std::size_t length = raw_[23];
    setWord(0, reinterpret_cast<std::uintptr_t>(buffer));
    setWord(1, length);
    setWord(2, ~static_cast<std::uint64_t>(n));
    return buffer;
  }
  if (n > capacity()) {
    auto* buffer = static_cast<char*>(std::realloc(data(), n + 1));
    setWord(0, reinterpret_cast<std::uintptr_t>(buffer));
    setWord(2, ~static_cast<std::uint64_t>(n));
  }
  return data();
}

void SmallString::append(const char* text, std::size_t n) {
  std::size_t length = size();
  if (length + n > capacity()) {
    // The text may lie inside this string: keep its offset across the move.
    const char* old = data();
    bool inside = text >= old && text <= old + length;
    std::size_t offset = inside ? static_cast<std::size_t>(text - old) : 0;
    reserve(n + (length * 3) / 2);
    if (inside) text = data() + offset;
  }
  if (n) std::memmove(data() + length, text, n);
  setSize(length + n);
}

char* SmallString::extend(std::size_t n) {
  std::size_t length = size();
  if (length + n > capacity()) reserve(n + (length * 3) / 2);
  std::memset(data() + length, 0, n);
  setSize(length + n);
  return data() + length;
}

void SmallString::truncate(std::size_t n) {
  if (n < size()) setSize(n);
}

}  // namespace qm
