#include "regex/utf8_decoder.h"

namespace qm {
namespace {

struct SequenceShape {
  std::uint32_t length;
  std::uint32_t lead_bits;
  std::uint32_t minimum;
};

// Lead bytes C0, C1 and F5..FF can only start overlong or out-of-range sequences.
bool shapeOfLead(unsigned lead, SequenceShape* shape) {
  if (lead >= 0xC2 && lead <= 0xDF) {
    *shape = {2, lead & 0x1Fu, 0x80};
  } else if ((lead & 0xF0) == 0xE0) {
    *shape = {3, lead & 0x0Fu, 0x800};
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    *shape = {4, lead & 0x07u, 0x10000};
  } else {
    return false;
  }
  return true;
}

}  // namespace

DecodedChar decodeUtf8(std::string_view text, std::size_t pos) {
  unsigned lead = static_cast<unsigned char>(text[pos]);
  if (lead < 0x80) return {lead, 1};
  const DecodedChar invalid{kInvalidByteBase + lead, 1};
  SequenceShape shape;
  if (!shapeOfLead(lead, &shape) || text.size() - pos < shape.length) return invalid;
  std::uint32_t code = shape.lead_bits;
  for (std::uint32_t i = 1; i < shape.length; ++i) {
    unsigned byte = static_cast<unsigned char>(text[pos + i]);
    if ((byte & 0xC0) != 0x80) return invalid;
    code = (code << 6) | (byte & 0x3Fu);
  }
  bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < shape.minimum || code > 0x10FFFF || surrogate) return invalid;
  return {code, shape.length};
}

}  // namespace qm
