#pragma once
// Splitting one folder tree among several machines or processes: each converts only the files
// of its own shard. A file's shard comes from a fixed hash (64-bit FNV-1a) of its path relative
// to the common root, with the extension left out, modulo the shard count. So the split does not
// depend on the machine, the order of listing or the other shards, and inputs that would write
// the same output (x.MF4 and x.MFC) always fall into the same shard, where the run sees both.
#include <cstdint>
#include <optional>
#include <string_view>

namespace qm {

struct Shard {
  std::uint32_t index = 0;
  std::uint32_t count = 1;  // 1: no sharding, every file is in shard 0
};

// "k/n" with 0 <= k < n, both plain decimal numbers; none for anything else.
std::optional<Shard> parseShard(std::string_view text);

std::uint32_t shardOfPath(std::string_view input_path, std::uint32_t count);

inline bool inShard(const Shard& shard, std::string_view input_path) {
  return shard.count <= 1 || shardOfPath(input_path, shard.count) == shard.index;
}

}  // namespace qm
