#include "app/shard.h"

namespace qm {
namespace {

std::optional<std::uint32_t> parseCount(std::string_view digits) {
  if (digits.empty() || digits.size() > 9) return std::nullopt;
  std::uint32_t value = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<std::uint32_t>(c - '0');
  }
  return value;
}

std::string_view withoutExtension(std::string_view path) {
  std::size_t dot = path.rfind('.');
  std::size_t slash = path.rfind('/');
  if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) return path;
  return path.substr(0, dot);
}

}  // namespace

std::optional<Shard> parseShard(std::string_view text) {
  std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  std::optional<std::uint32_t> index = parseCount(text.substr(0, slash));
  std::optional<std::uint32_t> count = parseCount(text.substr(slash + 1));
  if (!index || !count || *index >= *count) return std::nullopt;
  return Shard{*index, *count};
}

std::uint32_t shardOfPath(std::string_view input_path, std::uint32_t count) {
  if (count <= 1) return 0;
  std::uint64_t hash = 0xcbf29ce484222325ULL;
  for (char c : withoutExtension(input_path)) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ULL;
  }
  return static_cast<std::uint32_t>(hash % count);
}

}  // namespace qm
