#pragma once
// Open-addressing hash map with linear probing, shared by the password store, the path sets,
// the block cache, the saved-block set, the record layout maps and the sort table.
//
// Slot rules: slot = (low 32 bits of hash * capacity) >> 32; a used slot's control byte is the
// low byte of the hash with bit 7 set, an empty slot's is 0, and a sentinel 255 follows the last
// slot. Growth is lazy: before an insertion, when count + 2 exceeds 85% of the capacity, a rehash
// to count * 3 / 2 is requested, and carried out only when that exceeds the capacity.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "base/small_string.h"

namespace qm {

inline constexpr std::uint64_t kHashMultiplier = 0xC6A4A7935BD1E99DULL;

// Hash of a 64-bit key (offsets, record ids, addresses).
inline std::uint64_t hashInteger(std::uint64_t key) {
  return (std::rotl(key, 26) ^ key) * kHashMultiplier + 1;
}

// Hash of a text key: 8-byte words, then one of three deliberately different tails.
inline std::uint64_t hashText(std::string_view key) {
  std::uint64_t h = 1;
  const char* p = key.data();
  std::size_t n = key.size();
  for (; n >= 8; n -= 8, p += 8) {
    std::uint64_t w;
    std::memcpy(&w, p, 8);
    h += (std::rotl(w, 26) ^ w) * kHashMultiplier;
  }
  if (n == 0) return h;
  if (n == 4) {
    std::uint32_t u;
    std::memcpy(&u, p, 4);
    return h + static_cast<std::uint64_t>(u) * kHashMultiplier;
  }
  h += static_cast<unsigned char>(p[0]);
  for (std::size_t i = 1; i < n; ++i) h = h * 1023 + static_cast<unsigned char>(p[i]);
  return h ^ std::rotl(h, 26);
}

inline std::uint32_t slotOfHash(std::uint64_t hash, std::uint32_t capacity) {
  return static_cast<std::uint32_t>(((hash & 0xFFFFFFFFULL) * capacity) >> 32);
}

inline std::uint8_t controlOfHash(std::uint64_t hash) { return static_cast<std::uint8_t>(hash | 0x80); }

// How a key type is hashed, compared and looked up without building a key.
template <class K>
struct HashKeyTraits {
  using View = K;
  static std::uint64_t hash(View key) { return hashInteger(static_cast<std::uint64_t>(key)); }
  static bool equal(const K& stored, View key) { return stored == key; }
  static K make(View key) { return key; }
};

template <class T>
struct HashKeyTraits<T*> {
  using View = T*;
  static std::uint64_t hash(View key) { return hashInteger(reinterpret_cast<std::uintptr_t>(key)); }
  static bool equal(T* stored, View key) { return stored == key; }
  static T* make(View key) { return key; }
};

template <>
struct HashKeyTraits<SmallString> {
  using View = std::string_view;
  static std::uint64_t hash(View key) { return hashText(key); }
  static bool equal(const SmallString& stored, View key) { return stored.view() == key; }
  static SmallString make(View key) { return SmallString(key); }
};

struct NoValue {};

template <class K, class V = NoValue>
class HashMap {
 public:
  using Traits = HashKeyTraits<K>;
  using KeyView = typename Traits::View;
  struct Slot {
    K key{};
    V value{};
  };

  std::uint32_t size() const { return count_; }
  std::uint32_t capacity() const { return capacity_; }
  bool empty() const { return count_ == 0; }
  std::uint8_t controlAt(std::uint32_t index) const { return control_[index]; }
  const Slot& slotAt(std::uint32_t index) const { return slots_[index]; }
  Slot& slotAt(std::uint32_t index) { return slots_[index]; }

  V* find(KeyView key) {
    std::uint32_t index = indexOf(key);
    return index == kAbsent ? nullptr : &slots_[index].value;
  }
  const V* find(KeyView key) const { return const_cast<HashMap*>(this)->find(key); }
  bool contains(KeyView key) const { return find(key) != nullptr; }

  // Returns the slot index of the key, or kAbsent.
  std::uint32_t indexOf(KeyView key) const {
    if (capacity_ == 0) return kAbsent;
    std::uint64_t hash = Traits::hash(key);
    std::uint8_t control = controlOfHash(hash);
    for (std::uint32_t i = slotOfHash(hash, capacity_); control_[i] != 0; i = next(i)) {
      if (control_[i] == control && Traits::equal(slots_[i].key, key)) return i;
    }
    return kAbsent;
  }

  // Inserts the pair; fails (keeping the existing entry) when the key is present.
  bool insert(KeyView key, V value = V{}) {
    if (count_ + 2 > static_cast<std::uint32_t>(static_cast<float>(capacity_) * 0.85f)) {
      rehash((count_ * 3) >> 1);
    }
    std::uint64_t hash = Traits::hash(key);
    std::uint8_t control = controlOfHash(hash);
    std::uint32_t i = slotOfHash(hash, capacity_);
    for (; control_[i] != 0; i = next(i)) {
      if (control_[i] == control && Traits::equal(slots_[i].key, key)) return false;
    }
    control_[i] = control;
    slots_[i].key = Traits::make(key);
    slots_[i].value = std::move(value);
    ++count_;
    return true;
  }

  // Removes the key and hands back its value; later entries of the probe run shift back.
  bool take(KeyView key, V* out = nullptr) {
    std::uint32_t hole = indexOf(key);
    if (hole == kAbsent) return false;
    if (out) *out = std::move(slots_[hole].value);
    for (std::uint32_t j = next(hole); control_[j] != 0; j = next(j)) {
      std::uint32_t home = slotOfHash(Traits::hash(slots_[j].key), capacity_);
      if (distance(home, hole) < distance(home, j)) {
        slots_[hole] = std::move(slots_[j]);
        control_[hole] = control_[j];
        hole = j;
      }
    }
    control_[hole] = 0;
    slots_[hole] = Slot{};
    --count_;
    return true;
  }
  bool erase(KeyView key) { return take(key, nullptr); }

  // Empties the map and keeps its slots.
  void clear() {
    for (std::uint32_t i = 0; i < capacity_; ++i) {
      if (control_[i] != 0) slots_[i] = Slot{};
      control_[i] = 0;
    }
    count_ = 0;
  }

  // Visits the used slots in slot order.
  template <class F>
  void forEach(F&& visit) {
    for (std::uint32_t i = 0; i < capacity_; ++i) {
      if (control_[i] != 0) visit(slots_[i].key, slots_[i].value);
    }
  }
  template <class F>
  void forEach(F&& visit) const {
    for (std::uint32_t i = 0; i < capacity_; ++i) {
      if (control_[i] != 0) visit(slots_[i].key, slots_[i].value);
    }
  }

  // Carried out only when n equals the count or exceeds the capacity (growth is lazy).
  void rehash(std::uint32_t n) {
    if (n != count_ && n <= capacity_) return;
    std::uint32_t capacity = (static_cast<std::uint32_t>(static_cast<double>(n) / 0.85) + 4) | 1;
    std::vector<Slot> old_slots = std::move(slots_);
    std::vector<std::uint8_t> old_control = std::move(control_);
    std::uint32_t old_capacity = capacity_;
    slots_ = std::vector<Slot>(capacity);
    control_.assign(capacity + 1, 0);
    control_[capacity] = 255;
    capacity_ = capacity;
    for (std::uint32_t i = 0; i < old_capacity; ++i) {
      if (old_control[i] == 0) continue;
      std::uint32_t j = slotOfHash(Traits::hash(old_slots[i].key), capacity_);
      while (control_[j] != 0) j = next(j);
      control_[j] = old_control[i];
      slots_[j] = std::move(old_slots[i]);
    }
  }

  static constexpr std::uint32_t kAbsent = 0xFFFFFFFFu;

 private:
  std::uint32_t next(std::uint32_t i) const { return i + 1 == capacity_ ? 0 : i + 1; }
  std::uint32_t distance(std::uint32_t from, std::uint32_t to) const {
    return to >= from ? to - from : to + capacity_ - from;
  }

  std::vector<Slot> slots_;
  std::vector<std::uint8_t> control_;
  std::uint32_t count_ = 0;
  std::uint32_t capacity_ = 0;
};

template <class K>
using HashSet = HashMap<K, NoValue>;

}  // namespace qm
