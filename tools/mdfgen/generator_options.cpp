#include "tools/mdfgen/generator_options.h"

#include <charconv>

#include "base/log.h"

namespace qm {
namespace {

constexpr std::uint64_t kMaxSize = 64ULL << 30;  // guards against a mistyped suffix

template <class T>
std::optional<T> parseNumber(std::string_view text, int base = 10) {
  T value{};
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<std::uint32_t> parseDeviceId(std::string_view text) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text.remove_prefix(2);
  if (text.size() > 8) return std::nullopt;
  return parseNumber<std::uint32_t>(text, 16);
}

class ArgumentCursor {
 public:
  explicit ArgumentCursor(const std::vector<std::string_view>& args) : args_(args) {}
  bool done() const { return index_ >= args_.size(); }

  // Splits "--name=value" or takes the value from the next argument.
  std::string_view takeName() {
    std::string_view arg = args_[index_++];
    std::size_t equals = arg.find('=');
    inline_value_.reset();
    if (arg.substr(0, 2) == "--" && equals != std::string_view::npos) {
      inline_value_ = arg.substr(equals + 1);
      return arg.substr(0, equals);
    }
    return arg;
  }
  std::optional<std::string_view> takeValue() {
    if (inline_value_) return inline_value_;
    if (done()) return std::nullopt;
    return args_[index_++];
  }
  bool hasInlineValue() const { return inline_value_.has_value(); }

 private:
  const std::vector<std::string_view>& args_;
  std::size_t index_ = 0;
  std::optional<std::string_view> inline_value_;
};

bool takesValue(std::string_view name) {
  for (std::string_view known : {"--size", "--seed", "--out", "--verify", "--encrypt", "--device-id", "--iterations",
                                 "--window-bits", "--lookahead-bits"}) {
    if (name == known) return true;
  }
  return false;
}

bool isFlag(std::string_view name) {
  return name == "--compress" || name == "--plain-sorted" || name == "--damaged-id" || name == "--help" || name == "-h";
}

bool applyFlag(std::string_view name, GeneratorOptions& options) {
  if (name == "--compress") {
    options.containers.layers.push_back(ContainerLayer::kCompress);
  } else if (name == "--plain-sorted") {
    options.file.sorted = true;
  } else if (name == "--damaged-id") {
    options.file.damaged_id = true;
  } else {
    options.help = true;
  }
  return true;
}

bool applyValue(std::string_view name, std::string_view value, GeneratorOptions& options) {
  if (name == "--size") {
    std::optional<std::uint64_t> size = parseSize(value);
    if (size) options.file.size = *size;
    return size.has_value();
  }
  if (name == "--seed") {
    std::optional<std::uint64_t> seed = parseNumber<std::uint64_t>(value);
    if (seed) options.file.seed = *seed;
    return seed.has_value();
  }
  if (name == "--out" || name == "--verify") {
    (name == "--out" ? options.out : options.verify) = std::string(value);
    return !value.empty();
  }
  if (name == "--encrypt") {
    options.containers.layers.push_back(ContainerLayer::kEncrypt);
    options.containers.password = std::string(value);
    return true;
  }
  if (name == "--device-id") {
    std::optional<std::uint32_t> id = parseDeviceId(value);
    if (id) options.containers.device_id = *id;
    return id.has_value();
  }
  if (name == "--iterations") {
    std::optional<std::uint32_t> iterations = parseNumber<std::uint32_t>(value);
    if (iterations) options.containers.iterations = *iterations;
    return iterations && *iterations >= 1;
  }
  if (name == "--window-bits" || name == "--lookahead-bits") {
    std::optional<int> bits = parseNumber<int>(value);
    if (bits) (name == "--window-bits" ? options.containers.window_bits : options.containers.lookahead_bits) = *bits;
    return bits.has_value();
  }
  return false;
}

bool checkConsistency(const GeneratorOptions& options) {
  if (options.help) return true;
  const ContainerSettings& c = options.containers;
  if (c.window_bits < 4 || c.window_bits > 15 || c.lookahead_bits < 3 || c.lookahead_bits >= c.window_bits) {
    QM_LOG_E("Window bits must lie in 4..15 and lookahead bits in 3..window bits - 1 (got %d and %d)", c.window_bits,
             c.lookahead_bits);
    return false;
  }
  if (options.verify.empty() && options.out.empty()) {
    QM_LOG_E("No output file given (--out <path>)");
    return false;
  }
  return true;
}

}  // namespace

std::optional<std::uint64_t> parseSize(std::string_view text) {
  std::uint64_t unit = 1;
  if (!text.empty()) {
    switch (text.back()) {
      case 'k': case 'K': unit = 1ULL << 10; break;
      case 'm': case 'M': unit = 1ULL << 20; break;
      case 'g': case 'G': unit = 1ULL << 30; break;
      default: break;
    }
  }
  if (unit != 1) text.remove_suffix(1);
  std::optional<std::uint64_t> count = parseNumber<std::uint64_t>(text);
  if (!count || *count == 0 || *count > kMaxSize / unit) return std::nullopt;
  return *count * unit;
}

std::optional<GeneratorOptions> parseGeneratorOptions(const std::vector<std::string_view>& args) {
  GeneratorOptions options;
  ArgumentCursor cursor(args);
  while (!cursor.done()) {
    std::string_view name = cursor.takeName();
    if (isFlag(name)) {
      if (cursor.hasInlineValue()) {
        QM_LOG_E("Option %.*s takes no value", static_cast<int>(name.size()), name.data());
        return std::nullopt;
      }
      applyFlag(name, options);
      continue;
    }
    if (!takesValue(name)) {
      QM_LOG_E("Unknown argument %.*s", static_cast<int>(name.size()), name.data());
      return std::nullopt;
    }
    std::optional<std::string_view> value = cursor.takeValue();
    if (!value) {
      QM_LOG_E("Option %.*s needs a value", static_cast<int>(name.size()), name.data());
      return std::nullopt;
    }
    if (!applyValue(name, *value, options)) {
      QM_LOG_E("Bad value for %.*s: %.*s", static_cast<int>(name.size()), name.data(), static_cast<int>(value->size()),
               value->data());
      return std::nullopt;
    }
  }
  if (!checkConsistency(options)) return std::nullopt;
  options.containers.seed = static_cast<std::uint32_t>(options.file.seed);
  return options;
}

const char* generatorUsage() {
  return "Usage: mdfgen --out <path> [options]\n"
         "       mdfgen --verify <file>\n"
         "\n"
         "Writes an unfinalized MDF4 file as a CAN/LIN bus logger leaves it: one unsorted data group\n"
         "with CAN data frames (classic and FD, payloads in a variable-length channel group), CAN\n"
         "remote frames and LIN frames from several buses, in time order.\n"
         "\n"
         "  --size <n>            approximate file size in bytes, suffixes k, M, G (default 1M)\n"
         "  --seed <n>            the same seed gives the same file (default 1)\n"
         "  --out <path>          where to write\n"
         "  --plain-sorted        write a finalized, sorted file instead\n"
         "  --compress            wrap in a compressed container\n"
         "  --window-bits <n>     compression window bits, 4..15 (default 11)\n"
         "  --lookahead-bits <n>  compression lookahead bits, 3..window bits - 1 (default 4)\n"
         "  --encrypt <password>  wrap in an encrypted container\n"
         "  --device-id <hex>     device id written into container headers (default 1A2B3C4D)\n"
         "  --iterations <n>      key derivation iterations of the encrypted container (default 1000)\n"
         "  --damaged-id          spoil the file id, so a reader unwraps the containers and stops\n"
         "  --verify <file>       check an MDF4 file's blocks and records and summarize its content\n"
         "\n"
         "Containers nest in the order given: the first --compress/--encrypt is the innermost, so\n"
         "'--compress --encrypt pw' writes a compressed file inside an encrypted one. Unwrapped\n"
         "files are written streaming; wrapped ones are built in memory first.\n";
}

}  // namespace qm
