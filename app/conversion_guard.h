#pragma once
// A whole-file input buffer is the file mapped into memory. Should another program shorten the
// file during its conversion, the next access to the lost pages raises SIGBUS, which no read
// can report and after which the conversion cannot go on. While a guard is alive, that signal
// removes the half-written output (so nothing incomplete passes for a converted file), logs
// why, and ends the program with status 1, the status of a failed conversion. Inputs are never
// touched: an input is only removed after its output was written.
#include <string_view>

namespace qm {

class DirectoryHandle;

class ConversionGuard {
 public:
  // Guards the conversion of `input_path` (as the walk names it in its messages).
  explicit ConversionGuard(std::string_view input_path);
  ConversionGuard(const ConversionGuard&) = delete;
  ConversionGuard& operator=(const ConversionGuard&) = delete;
  ~ConversionGuard();

  // The output being written from now on, relative to `root`; null forgets it.
  static void setOutput(const DirectoryHandle* root, std::string_view relative);
};

}  // namespace qm
