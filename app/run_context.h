#pragma once
// Everything one run of the program holds: the options, the passwords, the inputs and the two
// directory handles that every file is opened through.
#include <cstdint>
#include <memory>
#include <vector>

#include "app/password_store.h"
#include "app/shard.h"
#include "base/small_string.h"
#include "stream/directory_handle.h"

namespace qm {

// The option fields the conversion reads, in one place so the job can borrow them.
struct ConversionOptions {
  bool delete_converted = false;
  bool no_append_root = false;
  bool non_interactive = false;  // no progress display, even on a terminal; no waiting for Enter
  std::int64_t buffer_size = -1;
  SmallString output_directory;
  int jobs = 1;  // files converted at the same time; 0 = one per processor
  bool update = false;  // skip inputs whose output is at least as new
  Shard shard;
  std::uint64_t memory_budget = 0;  // what conversions running together may hold
  bool salvage = false;  // recover the records behind damaged stretches of data
  PasswordStore password_store;
};

struct RunContext {
  ConversionOptions options;
  SmallString common_root;
  std::vector<SmallString> inputs;  // names inside common_root, in argument order
  std::unique_ptr<DirectoryHandle> root_directory;
  // Opened on the output directory when one was given; otherwise null and the root is used.
  std::unique_ptr<DirectoryHandle> output_directory_handle;

  DirectoryHandle* outputRoot() const {
    return output_directory_handle ? output_directory_handle.get() : root_directory.get();
  }
};

}  // namespace qm
