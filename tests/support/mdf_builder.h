#pragma once
// Lays out MDF4 input files block by block for tests. Blocks are referred to by handles and
// linked by handle; offsets are resolved when bytes() is called. A block goes at a chosen offset
// (place) or, by default, at the next free 8-byte boundary in creation order. The identification
// block is always at 0 and the header block at 64.
//
//   MdfBuilder b;
//   b.id({.standard_flags = 0x25});
//   auto cn = b.channel({.name = b.text("Speed"), .bit_count = 16});
//   auto cg = b.channelGroup({.first_channel = cn, .record_id = 1, .data_bytes = 2});
//   auto dt = b.data(MdfBuilder::record(1, 1, "\x01\x02"));
//   b.header({.first_data_group = b.dataGroup({.first_channel_group = cg, .data = dt,
//                                              .record_id_size = 1})});
//   std::string file = b.bytes();
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qm::test {

class MdfBuilder {
 public:
  using Handle = int;
  static constexpr Handle kNone = 0;  // a link written as 0

  // The fields of each block in file order: its links first, then its data section. Links are
  // handles; kNone writes 0.
  struct IdSpec {
    std::string file_id{};  // empty: "MDF     " when both flags are 0, else "UnFinMF "
    std::string version_text = "4.10    ", program_id = "qmtest  ";
    std::uint16_t version_number = 410, standard_flags = 0, custom_flags = 0;
  };
  struct HeaderSpec {
    Handle first_data_group = kNone, first_file_history = kNone, channel_hierarchy = kNone, attachment = kNone,
           event = kNone, comment = kNone;
    std::uint64_t start_time = 0;
    std::int16_t time_zone_offset = 0, daylight_saving_offset = 0;
    std::uint8_t time_flags = 0, time_quality = 0, flags = 0;
    double start_angle = 0.0, start_distance = 0.0;
  };
  struct DataGroupSpec {
    Handle next = kNone, first_channel_group = kNone, data = kNone, comment = kNone;
    std::uint8_t record_id_size = 0;
  };
  struct ChannelGroupSpec {
    Handle next = kNone, first_channel = kNone, acquisition_name = kNone, acquisition_source = kNone,
           sample_reduction = kNone, comment = kNone;
    std::uint64_t record_id = 0, cycle_count = 0;
    std::uint16_t flags = 0, path_separator = 0;
    std::uint32_t data_bytes = 0, invalidation_bytes = 0;
  };
  struct ChannelSpec {
    Handle next = kNone, composition = kNone, name = kNone, source = kNone, conversion = kNone, data = kNone,
           unit = kNone, comment = kNone;
    std::uint8_t channel_type = 0, sync_type = 0, data_type = 0, bit_offset = 0;
    std::uint32_t byte_offset = 0, bit_count = 0, flags = 0, invalidation_bit_position = 0;
    std::uint8_t precision = 0;
    std::uint16_t attachment_count = 0;
    double value_range_min = 0.0, value_range_max = 0.0, limit_min = 0.0, limit_max = 0.0, extended_limit_min = 0.0,
           extended_limit_max = 0.0;
  };
  struct ConversionSpec {
    Handle name = kNone, unit = kNone, comment = kNone, inverse = kNone;
    std::uint8_t conversion_type = 0, precision = 0;
    std::uint16_t flags = 0, reference_count = 0;
    std::vector<double> values{};
    std::optional<std::uint16_t> value_count{};  // default: values.size()
    double physical_min = 0.0, physical_max = 0.0;
  };
  struct SourceSpec {
    Handle name = kNone, path = kNone, comment = kNone;
    std::uint8_t source_type = 0, bus_type = 0, flags = 0;
  };
  struct FileHistorySpec {
    Handle next = kNone, comment = kNone;
    std::uint64_t time = 0;
    std::int16_t time_zone_offset = 0, daylight_saving_offset = 0;
    std::uint8_t time_flags = 0;
  };

  MdfBuilder();

  // The identification block (written at 0 even when this is never called: "MDF     ", flags 0).
  void id(const IdSpec& fields);
  // The header block, placed at 64.
  Handle header(const HeaderSpec& fields);
  Handle dataGroup(const DataGroupSpec& fields);
  Handle channelGroup(const ChannelGroupSpec& fields);
  Handle channel(const ChannelSpec& fields);
  Handle conversion(const ConversionSpec& fields);
  Handle source(const SourceSpec& fields);
  Handle fileHistory(const FileHistorySpec& fields);
  // TX / MD blocks whose data section is the text plus one terminating zero byte.
  Handle text(std::string_view text);
  Handle metadata(std::string_view xml);
  // TX block whose data section is exactly these bytes (no terminator added).
  Handle textBytes(std::string_view bytes);
  Handle data(std::string_view payload);  // DT
  // Any block: "##" + the two-letter code, links and data section as given.
  Handle block(std::string_view code, const std::vector<Handle>& links, std::string_view data_section);
  // Bytes written as they are (an unknown block, a truncated block, ...).
  Handle raw(std::string_view bytes);
  // A handle that is only an offset (links to it carry the value; nothing is written there).
  Handle offset(std::uint64_t value);

  // Link patching after creation: link `index` of `block` := `target`.
  void setLink(Handle block, std::size_t index, Handle target);
  // Links each block to the following one through link 0 (the "next" link).
  void chain(const std::vector<Handle>& blocks);
  // Overrides the length field written in the block header (default: the real size).
  void setLength(Handle block, std::uint64_t length);
  // Places the block at this offset instead of automatically.
  void place(Handle block, std::uint64_t offset);

  // Resolves the layout: the offset of a handle (for kNone, 0).
  std::uint64_t offsetOf(Handle handle);
  std::string bytes();

  // A record as a logger writes it: `id_bytes` little-endian bytes of record id, then payload.
  static std::string record(std::uint64_t record_id, int id_bytes, std::string_view payload);
  // A VLSD record: record id, 4-byte length, the bytes.
  static std::string vlsdRecord(std::uint64_t record_id, int id_bytes, std::string_view value);
  static std::string u16(std::uint16_t v);
  static std::string u32(std::uint32_t v);
  static std::string u64(std::uint64_t v);
  static std::string f64(double v);

 private:
  struct Entry {
    bool has_content = false;
    bool is_raw = false;
    std::string code{};  // two letters
    std::vector<Handle> links{};
    std::string data_section{};  // or the raw bytes
    std::optional<std::uint64_t> length{};
    std::optional<std::uint64_t> offset{};  // chosen or fixed
    std::uint64_t resolved = 0;
  };
  Handle add(Entry entry);
  std::uint64_t sizeOf(const Entry& entry) const;
  void layout();

  IdSpec id_;
  std::vector<Entry> entries_;  // index = handle; entry 0 is kNone
  bool laid_out_ = false;
};

// Reads little-endian fields from a byte string (for checking written files).
std::uint64_t readU64At(const std::string& bytes, std::size_t offset);
std::uint32_t readU32At(const std::string& bytes, std::size_t offset);
std::uint16_t readU16At(const std::string& bytes, std::size_t offset);
// Link `index` of the block at `block_offset`.
std::uint64_t linkAt(const std::string& bytes, std::size_t block_offset, std::size_t index);

}  // namespace qm::test
