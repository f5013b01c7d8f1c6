#include "mdf/id_block.h"

#include <cstring>
#include <string_view>

#include "mdf/header_block.h"
#include "mdf/save_context.h"
#include "stream/stream_reader.h"

namespace qm {
namespace {

constexpr std::string_view kFinalizedId = "MDF     ";
constexpr std::string_view kUnfinalizedId = "UnFinMF ";
constexpr std::size_t kReservedAfterProgramId = 4;
constexpr std::size_t kReservedAfterVersion = 30;

bool isKnownFileId(const char (&id)[8]) {
  std::string_view text(id, sizeof id);
  if (text.find('\0') != std::string_view::npos) return false;
  return text == kFinalizedId || text == kUnfinalizedId;
}

}  // namespace

bool IdBlock::load(LoadContext&, Stream* stream, const BlockHeader&, BlockList*) {
  StreamReader reader(stream);
  char file_id[8];
  if (!reader.readBytes(file_id, sizeof file_id) || !isKnownFileId(file_id)) return false;
  // Short reads of the rest are tolerated: an accepted file id is enough.
  reader.readBytes(version_text.data(), version_text.size());
  reader.readBytes(program_id.data(), program_id.size());
  reader.skip(kReservedAfterProgramId);
  reader.read(version_number);
  reader.skip(kReservedAfterVersion);
  reader.read(standard_flags);
  reader.read(custom_flags);
  return true;
}

std::uint8_t IdBlock::save(SaveContext& ctx, Block*) {
  if (ctx.position != 0) return 0;
  file_position = 0;
  ctx.position += kIdBlockLength;
  bool finalized = standard_flags == 0 && custom_flags == 0;
  std::string_view file_id = finalized ? kFinalizedId : kUnfinalizedId;
  StreamReader writer(ctx.stream, 0);
  bool written = writer.writeBytes(file_id.data(), file_id.size()) &&
                 writer.writeBytes(version_text.data(), version_text.size()) &&
                 writer.writeBytes(program_id.data(), program_id.size());
  writer.skip(kReservedAfterProgramId);
  written = written && writer.write(version_number);
  writer.skip(kReservedAfterVersion);
  written = written && writer.write(standard_flags) && writer.write(custom_flags);
  return saveBlock(header_block.get(), ctx, nullptr) != 0 && written ? 1 : 0;
}

HeaderBlock* IdBlock::header() const { return blockAs<HeaderBlock>(header_block); }

std::uint16_t standardUnfinalizedFlags(const IdBlock* id) { return id ? id->standard_flags : 0; }

std::uint16_t customUnfinalizedFlags(const IdBlock* id) { return id ? id->custom_flags : 0; }

}  // namespace qm
