#pragma once
// The program's owned text: 24 bytes, up to 22 characters inline, longer texts on the heap.
// Byte 23 tells the forms apart: below 128 it is the inline length; with its top bit set the
// record holds (pointer, length, ~capacity) as three 64-bit words.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include "base/printf_format.h"

namespace qm {

class SmallString {
 public:
  static constexpr std::size_t kInlineCapacity = 22;

  SmallString() noexcept;
  SmallString(std::string_view text);  // NOLINT: implicit on purpose, texts convert freely
  SmallString(const char* text) : SmallString(std::string_view(text)) {}
  SmallString(const SmallString& other);
  SmallString(SmallString&& other) noexcept;
  SmallString& operator=(const SmallString& other);
  SmallString& operator=(SmallString&& other) noexcept;
  ~SmallString();

  // printf-style formatting into a new string.
  static SmallString format(const char* fmt, ...) QM_PRINTF_FORMAT(1, 2);

  const char* data() const;
  char* data();
  const char* c_str() const { return data(); }
  std::size_t size() const;
  std::size_t capacity() const;
  bool empty() const { return size() == 0; }
  bool isInline() const { return (raw_[23] & 0x80) == 0; }
  std::string_view view() const { return {data(), size()}; }
  operator std::string_view() const { return view(); }  // NOLINT

  // Grows the capacity to at least n; never shrinks. Returns the data pointer.
  char* reserve(std::size_t n);
  void append(const char* text, std::size_t n);
  void append(std::string_view text) { append(text.data(), text.size()); }
  SmallString& operator+=(std::string_view text) {
    append(text);
    return *this;
  }
  // Appends n zero bytes and returns a pointer to them, for reading straight into the tail.
  char* extend(std::size_t n);
  // Shortens the text to n bytes (n larger than the size is ignored).
  void truncate(std::size_t n);
  void clear() { truncate(0); }

  friend bool operator==(const SmallString& a, const SmallString& b) { return a.view() == b.view(); }
  friend bool operator==(const SmallString& a, std::string_view b) { return a.view() == b; }
  friend bool operator==(const SmallString& a, const char* b) { return a.view() == std::string_view(b); }

 private:
  std::uint64_t word(int i) const;
  void setWord(int i, std::uint64_t value);
  void setSize(std::size_t n);
  void release();

  alignas(8) unsigned char raw_[24];
};

static_assert(sizeof(SmallString) == 24, "SmallString keeps its 24-byte layout");

}  // namespace qm
