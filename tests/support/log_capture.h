#pragma once
// Collects the lines logged at `threshold` or above while it lives: by default the message text
// only, or the `parts` asked for; never the newline.
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"

namespace qm::test {

class LogCapture {
 public:
  explicit LogCapture(int threshold = 0, unsigned parts = kLogMessage) : threshold_(logThreshold()) {
    setLogThreshold(threshold);
    setLogOutput(parts, this, &LogCapture::collect);
  }
  ~LogCapture() {
    setLogOutput(kLogContext | kLogTag | kLogLocation | kLogMessage, nullptr, nullptr);
    setLogThreshold(threshold_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  const std::vector<std::string>& lines() const { return lines_; }
  bool contains(std::string_view text) const {
    for (const std::string& line : lines_) {
      if (line == text) return true;
    }
    return false;
  }

 private:
  static void collect(void* arg, LogLine& line) {
    static_cast<LogCapture*>(arg)->lines_.emplace_back(line.start, line.pos);
  }

  std::vector<std::string> lines_;
  int threshold_;
};

}  // namespace qm::test
