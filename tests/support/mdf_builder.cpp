#include "tests/support/mdf_builder.h"

#include <algorithm>
#include <cstring>

namespace qm::test {
namespace {

template <class T>
void put(std::string& out, T value) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  out.append(bytes, sizeof(T));
}

// The values' bytes one after the other, as a data section lays its fields out.
template <class... T>
std::string bytesOf(T... values) {
  std::string out;
  (put(out, values), ...);
  return out;
}

std::string fixedText(const std::string& text) {
  std::string out = text.substr(0, 8);
  out.resize(8, ' ');
  return out;
}

std::uint64_t roundUpToEight(std::uint64_t n) { return (n + 7) & ~std::uint64_t{7}; }

template <class T>
T getAt(const std::string& bytes, std::size_t offset) {
  T value{};
  if (offset + sizeof(T) <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

}  // namespace

MdfBuilder::MdfBuilder() { entries_.emplace_back(); }

void MdfBuilder::id(const IdSpec& fields) { id_ = fields; }

MdfBuilder::Handle MdfBuilder::add(Entry entry) {
  entry.has_content = true;
  laid_out_ = false;
  entries_.push_back(std::move(entry));
  return static_cast<Handle>(entries_.size() - 1);
}

MdfBuilder::Handle MdfBuilder::header(const HeaderSpec& s) {
  std::string d = bytesOf(s.start_time, s.time_zone_offset, s.daylight_saving_offset, s.time_flags, s.time_quality,
                          s.flags, std::uint8_t{0}, s.start_angle, s.start_distance);
  Handle h = add({.code = "HD",
                  .links = {s.first_data_group, s.first_file_history, s.channel_hierarchy, s.attachment, s.event,
                            s.comment},
                  .data_section = d});
  place(h, 64);
  return h;
}

MdfBuilder::Handle MdfBuilder::dataGroup(const DataGroupSpec& s) {
  std::string d = bytesOf(s.record_id_size) + std::string(7, '\0');
  return add({.code = "DG", .links = {s.next, s.first_channel_group, s.data, s.comment}, .data_section = d});
}

MdfBuilder::Handle MdfBuilder::channelGroup(const ChannelGroupSpec& s) {
  std::string d = bytesOf(s.record_id, s.cycle_count, s.flags, s.path_separator, std::uint32_t{0}, s.data_bytes,
                          s.invalidation_bytes);
  return add({.code = "CG",
              .links = {s.next, s.first_channel, s.acquisition_name, s.acquisition_source, s.sample_reduction,
                        s.comment},
              .data_section = d});
}

MdfBuilder::Handle MdfBuilder::channel(const ChannelSpec& s) {
  std::string d = bytesOf(s.channel_type, s.sync_type, s.data_type, s.bit_offset, s.byte_offset, s.bit_count, s.flags,
                          s.invalidation_bit_position, s.precision, std::uint8_t{0}, s.attachment_count,
                          s.value_range_min, s.value_range_max, s.limit_min, s.limit_max, s.extended_limit_min,
                          s.extended_limit_max);
  return add({.code = "CN",
              .links = {s.next, s.composition, s.name, s.source, s.conversion, s.data, s.unit, s.comment},
              .data_section = d});
}

MdfBuilder::Handle MdfBuilder::conversion(const ConversionSpec& s) {
  std::string d = bytesOf(s.conversion_type, s.precision, s.flags, s.reference_count,
                          s.value_count.value_or(static_cast<std::uint16_t>(s.values.size())), s.physical_min,
                          s.physical_max);
  for (double v : s.values) put(d, v);
  return add({.code = "CC", .links = {s.name, s.unit, s.comment, s.inverse}, .data_section = d});
}

MdfBuilder::Handle MdfBuilder::source(const SourceSpec& s) {
  std::string d = bytesOf(s.source_type, s.bus_type, s.flags) + std::string(5, '\0');
  return add({.code = "SI", .links = {s.name, s.path, s.comment}, .data_section = d});
}

MdfBuilder::Handle MdfBuilder::fileHistory(const FileHistorySpec& s) {
  std::string d = bytesOf(s.time, s.time_zone_offset, s.daylight_saving_offset, s.time_flags) + std::string(3, '\0');
  return add({.code = "FH", .links = {s.next, s.comment}, .data_section = d});
}

MdfBuilder::Handle MdfBuilder::text(std::string_view t) { return add({.code = "TX", .data_section = std::string(t) + '\0'}); }

MdfBuilder::Handle MdfBuilder::metadata(std::string_view xml) {
  return add({.code = "MD", .data_section = std::string(xml) + '\0'});
}

MdfBuilder::Handle MdfBuilder::textBytes(std::string_view bytes) {
  return add({.code = "TX", .data_section = std::string(bytes)});
}

MdfBuilder::Handle MdfBuilder::data(std::string_view payload) {
  return add({.code = "DT", .data_section = std::string(payload)});
}

MdfBuilder::Handle MdfBuilder::block(std::string_view code, const std::vector<Handle>& links,
                                     std::string_view data_section) {
  return add({.code = std::string(code), .links = links, .data_section = std::string(data_section)});
}

MdfBuilder::Handle MdfBuilder::raw(std::string_view bytes) {
  return add({.is_raw = true, .data_section = std::string(bytes)});
}

MdfBuilder::Handle MdfBuilder::offset(std::uint64_t value) {
  Handle handle = add({.offset = value});
  entries_.back().has_content = false;
  return handle;
}

void MdfBuilder::setLink(Handle block, std::size_t index, Handle target) {
  Entry& entry = entries_.at(static_cast<std::size_t>(block));
  if (entry.links.size() <= index) entry.links.resize(index + 1, kNone);
  entry.links[index] = target;
  laid_out_ = false;
}

void MdfBuilder::chain(const std::vector<Handle>& blocks) {
  for (std::size_t i = 0; i + 1 < blocks.size(); ++i) setLink(blocks[i], 0, blocks[i + 1]);
}

void MdfBuilder::setLength(Handle block, std::uint64_t length) {
  entries_.at(static_cast<std::size_t>(block)).length = length;
}

void MdfBuilder::place(Handle block, std::uint64_t offset) {
  entries_.at(static_cast<std::size_t>(block)).offset = offset;
  laid_out_ = false;
}

std::uint64_t MdfBuilder::sizeOf(const Entry& entry) const {
  if (entry.is_raw) return entry.data_section.size();
  return 24 + 8 * entry.links.size() + entry.data_section.size();
}

void MdfBuilder::layout() {
  if (laid_out_) return;
  // Automatic blocks go one after the other, so they only need checking against chosen places.
  std::vector<std::pair<std::uint64_t, std::uint64_t>> chosen{{0, 64}};
  for (const Entry& e : entries_) {
    if (e.has_content && e.offset) chosen.emplace_back(*e.offset, *e.offset + sizeOf(e));
  }
  std::uint64_t cursor = 64;
  for (Entry& e : entries_) {
    if (e.offset) {
      e.resolved = *e.offset;
      continue;
    }
    if (!e.has_content) continue;
    std::uint64_t size = std::max<std::uint64_t>(sizeOf(e), 1);
    std::uint64_t at = roundUpToEight(cursor);
    for (bool moved = true; moved;) {
      moved = false;
      for (const auto& [begin, end] : chosen) {
        if (at < end && begin < at + size) {
          at = roundUpToEight(end);
          moved = true;
        }
      }
    }
    e.resolved = at;
    cursor = at + size;
  }
  laid_out_ = true;
}

std::uint64_t MdfBuilder::offsetOf(Handle handle) {
  if (handle == kNone) return 0;
  layout();
  return entries_.at(static_cast<std::size_t>(handle)).resolved;
}

std::string MdfBuilder::bytes() {
  layout();
  std::uint64_t end = 64;
  for (const Entry& e : entries_) {
    if (e.has_content) end = std::max(end, e.resolved + sizeOf(e));
  }
  std::string out(end, '\0');
  bool finalized = id_.standard_flags == 0 && id_.custom_flags == 0;
  std::string file_id = id_.file_id.empty() ? std::string(finalized ? "MDF     " : "UnFinMF ") : id_.file_id.substr(0, 8);
  file_id.resize(8, '\0');
  out.replace(0, 64, file_id + fixedText(id_.version_text) + fixedText(id_.program_id) + std::string(4, '\0') +
                         bytesOf(id_.version_number) + std::string(30, '\0') +
                         bytesOf(id_.standard_flags, id_.custom_flags));
  for (const Entry& e : entries_) {
    if (!e.has_content) continue;
    std::string block;
    if (e.is_raw) {
      block = e.data_section;
    } else {
      block = "##" + e.code + std::string(4, '\0') + bytesOf(e.length.value_or(sizeOf(e)), std::uint64_t{e.links.size()});
      for (Handle link : e.links) put(block, offsetOf(link));
      block += e.data_section;
    }
    out.replace(e.resolved, block.size(), block);
  }
  return out;
}

std::string MdfBuilder::record(std::uint64_t record_id, int id_bytes, std::string_view payload) {
  std::string out;
  for (int i = 0; i < id_bytes; ++i) out.push_back(static_cast<char>((record_id >> (8 * i)) & 0xFF));
  out += payload;
  return out;
}

std::string MdfBuilder::vlsdRecord(std::uint64_t record_id, int id_bytes, std::string_view value) {
  return record(record_id, id_bytes, u32(static_cast<std::uint32_t>(value.size())) + std::string(value));
}

std::string MdfBuilder::u16(std::uint16_t v) { return bytesOf(v); }
std::string MdfBuilder::u32(std::uint32_t v) { return bytesOf(v); }
std::string MdfBuilder::u64(std::uint64_t v) { return bytesOf(v); }
std::string MdfBuilder::f64(double v) { return bytesOf(v); }

std::uint64_t readU64At(const std::string& bytes, std::size_t offset) { return getAt<std::uint64_t>(bytes, offset); }
std::uint32_t readU32At(const std::string& bytes, std::size_t offset) { return getAt<std::uint32_t>(bytes, offset); }
std::uint16_t readU16At(const std::string& bytes, std::size_t offset) { return getAt<std::uint16_t>(bytes, offset); }
std::uint64_t linkAt(const std::string& bytes, std::size_t block_offset, std::size_t index) {
  return readU64At(bytes, block_offset + 24 + 8 * index);
}

}  // namespace qm::test
