#pragma once
// Test helpers: an MDF4 file in memory, opened the way the program opens its inputs.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "finalize/finalize.h"
#include "finalize/finalize_hooks.h"
#include "finalize/record_reader.h"
#include "mdf/channel_block.h"
#include "mdf/channel_group_block.h"
#include "mdf/data_group_block.h"
#include "mdf/id_block.h"
#include "mdf/mdf_file.h"
#include "mdf/payload_block.h"
#include "stream/file_stream.h"
#include "stream/memory_stream.h"
#include "tests/support/temp_dir.h"

namespace qm::test {

// A memory stream that does not show its contents: records are then read piece by piece and
// sorted by copying, as with an input that is not held in memory.
class StreamedOnly : public MemoryStream {
 public:
  ByteView contents() override { return {}; }
};

enum class InputKind { kInMemory, kStreamed };

struct OpenedFile {
  explicit OpenedFile(const std::string& bytes, InputKind kind = InputKind::kInMemory)
      : stream(kind == InputKind::kInMemory ? std::make_unique<MemoryStream>() : std::make_unique<StreamedOnly>()) {
    stream->write(bytes.data(), bytes.size());
    stream->seek(0, kSeekSet);
    file = MdfFile::open(stream.get(), &finalizeLoadHooks());
  }
  DataGroupBlock* group(std::size_t i) const { return blockAs<DataGroupBlock>(file->dataGroups()->at(i)); }
  std::size_t groupCount() const { return file->dataGroups()->size(); }

  std::unique_ptr<MemoryStream> stream;  // the file borrows it
  std::unique_ptr<MdfFile> file;
};

inline ChannelGroupBlock* channelGroup(const DataGroupBlock* group) {
  return blockAs<ChannelGroupBlock>(group->channel_groups.front());
}

inline std::string payloadOf(const BlockRef& block) {
  PayloadBlock* payload = blockAs<PayloadBlock>(block);
  std::string bytes(payload ? payload->dataSectionSize() : 0, '\0');
  if (payload && payload->payloadStream()->seek(0, kSeekSet) == 0) {
    bytes.resize(static_cast<std::size_t>(std::max<std::int64_t>(0, payload->payloadStream()->read(bytes.data(), bytes.size()))));
  }
  return bytes;
}

inline std::vector<std::string> recordsOf(const DataGroupBlock& group) {
  std::vector<std::string> records;
  RecordIterator iterator(group);
  while (const Record* r = iterator.next()) records.emplace_back(reinterpret_cast<const char*>(r->payload), r->payload_size);
  return records;
}

// The little-endian number of `size` bytes at `at`.
inline std::uint64_t littleEndianAt(const std::string& bytes, std::size_t at, int size) {
  std::uint64_t value = 0;
  for (int i = size; i > 0; --i) value = (value << 8) | static_cast<unsigned char>(bytes[at + i - 1]);
  return value;
}

// Saved to a real file: the writer seeks over gaps it never writes, which a memory stream
// refuses beyond its capacity.
inline std::string savedBytes(MdfFile* file) {
  TempDir dir;
  std::string path = dir / "out_fin.MF4";
  std::unique_ptr<FileStream> output = FileStream::open(path.c_str(), kFileWrite);
  EXPECT_TRUE(output && saveFinalized(file, output.get()));
  if (output) output->close();
  return readFile(path);
}

}  // namespace qm::test
