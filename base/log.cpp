#include "base/log.h"

#include <cstdarg>
#include <cstdio>

#include "platform/process_info.h"
#include "platform/terminal.h"

namespace qm {
namespace {

int g_threshold = 0;

struct OutputSpec {
  unsigned dump_width = 32;
  unsigned mask = kLogContext | kLogTag | kLogLocation | kLogMessage;
  void* arg = nullptr;
  LogOutput output = writeLineToStderr;
};
OutputSpec g_output;

void beginLine(LogLine& line) {
  line.start = line.buffer;
  line.end = line.buffer + LogLine::kContentLimit;
  line.pos = line.start;
}

void putChar(LogLine& line, char c) {
  if (line.pos < line.end) *line.pos++ = c;
}

// Writes a number right-aligned in `width` columns; wider numbers are not cut.
// Digits are produced right to left in a scratch area, a minus sign in front.
void putNumber(LogLine& line, long long value, int width, char pad) {
  char scratch[24];
  char* p = scratch + sizeof scratch;
  unsigned long long magnitude = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                           : static_cast<unsigned long long>(value);
  do {
    *--p = static_cast<char>('0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude != 0);
  if (value < 0) *--p = '-';
  int digits = static_cast<int>(scratch + sizeof scratch - p);
  for (int i = digits; i < width; ++i) putChar(line, pad);
  while (p < scratch + sizeof scratch) putChar(line, *p++);
}

void putContext(LogLine& line, int level) {
  const LocalTime now = localTimeNow();
  // The year is known but deliberately not printed.
  putNumber(line, now.month, 2, '0');
  putChar(line, '-');
  putNumber(line, now.day, 2, '0');
  putChar(line, ' ');
  putNumber(line, now.hour, 2, '0');
  putChar(line, ':');
  putNumber(line, now.minute, 2, '0');
  putChar(line, ':');
  putNumber(line, now.second, 2, '0');
  putChar(line, '.');
  putNumber(line, now.millisecond, 3, '0');
  putChar(line, ' ');
  putNumber(line, processId(), 5, ' ');
  putChar(line, ' ');
  putNumber(line, threadId(), 5, ' ');
  putChar(line, ' ');
  putChar(line, logLevelLetter(level));
  putChar(line, ' ');
}

// Length of the well-formed UTF-8 character at `text` (at most `size` bytes) that a terminal
// prints as text, or 0 for a byte that is not one: a stray byte, an overlong or cut sequence,
// or a C1 control (U+0080..U+009F), which terminals obey like ESC.
std::size_t printableUtf8Length(const unsigned char* text, std::size_t size) {
  unsigned char lead = text[0];
  std::size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 && lead < 0xE0 ? 2 : 0;
  if (length == 0 || length > size) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80) return 0;
  }
  if (lead == 0xC2 && text[1] < 0xA0) return 0;                                   // C1 controls
  if ((lead == 0xE0 && text[1] < 0xA0) || (lead == 0xF0 && text[1] < 0x90)) return 0;  // overlong
  if ((lead == 0xED && text[1] >= 0xA0) || (lead == 0xF4 && text[1] >= 0x90)) return 0;  // surrogates, too large
  return length;
}

void putByteEscape(LogLine& line, unsigned char c) {
  static const char kHex[] = "0123456789abcdef";
  putChar(line, '\\');
  putChar(line, 'x');
  putChar(line, kHex[c >> 4]);
  putChar(line, kHex[c & 15]);
}

// Bytes from a file or a file name must not break a line apart, forge another one or drive the
// terminal: control characters, and bytes that are not part of printable UTF-8, are written as
// \xNN. Everything else is kept byte for byte.
void putEscaped(LogLine& line, const char* text, std::size_t size) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  for (std::size_t i = 0; i < size;) {
    unsigned char c = bytes[i];
    std::size_t keep = c >= 0x20 && c < 0x7F ? 1 : c >= 0x80 ? printableUtf8Length(bytes + i, size - i) : 0;
    // A character or an escape is written whole or not at all.
    std::size_t needed = keep > 0 ? keep : 4;
    if (static_cast<std::size_t>(line.end - line.pos) < needed) return;
    if (keep == 0) {
      putByteEscape(line, c);
      ++i;
      continue;
    }
    for (std::size_t k = 0; k < keep; ++k) putChar(line, static_cast<char>(bytes[i + k]));
    i += keep;
  }
}

void putMessage(LogLine& line, const char* format, va_list args) {
  // What fits in the line even if nothing needs escaping.
  char text[LogLine::kBufferSize];
  std::size_t room = static_cast<std::size_t>(line.end - line.pos);
  int written = std::vsnprintf(text, room + 1, format, args);
  if (written < 0) return;
  putEscaped(line, text, static_cast<std::size_t>(written) < room ? static_cast<std::size_t>(written) : room);
}

}  // namespace

int logThreshold() { return g_threshold; }
void setLogThreshold(int threshold) { g_threshold = threshold; }

void setLogOutput(unsigned mask, void* arg, LogOutput output) {
  g_output.mask = mask;
  g_output.arg = arg;
  g_output.output = output ? output : writeLineToStderr;
}

void writeLineToStderr(void*, LogLine& line) {
  *line.pos = '\n';
  writeOnce(standardErrorHandle(), line.start, static_cast<std::size_t>(line.pos - line.start) + 1);
}

char logLevelLetter(int level) {
  static const char kLetters[] = "VDIWEF";
  return level >= 1 && level <= 6 ? kLetters[level - 1] : '?';
}

void logWrite(int level, const char* tag, const char* format, ...) {
  LogLine line;
  beginLine(line);
  if (g_output.mask & kLogContext) putContext(line, level);
  if ((g_output.mask & kLogTag) && tag) {
    for (const char* t = tag; *t; ++t) putChar(line, *t);
    putChar(line, ' ');
  }
  if (g_output.mask & kLogMessage) {
    va_list args;
    va_start(args, format);
    putMessage(line, format, args);
    va_end(args);
  }
  g_output.output(g_output.arg, line);
}

void logDump(int level, const void* data, std::size_t size) {
  static const char kHex[] = "0123456789abcdef";
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (std::size_t at = 0; at < size; at += g_output.dump_width) {
    LogLine line;
    beginLine(line);
    if (g_output.mask & kLogContext) putContext(line, level);
    std::size_t n = size - at < g_output.dump_width ? size - at : g_output.dump_width;
    for (std::size_t i = 0; i < n; ++i) {
      putChar(line, kHex[bytes[at + i] >> 4]);
      putChar(line, kHex[bytes[at + i] & 15]);
      putChar(line, ' ');
    }
    for (std::size_t i = 0; i < n; ++i) {
      unsigned char c = bytes[at + i];
      putChar(line, c >= 32 && c < 127 ? static_cast<char>(c) : '?');
    }
    g_output.output(g_output.arg, line);
  }
}

}  // namespace qm
