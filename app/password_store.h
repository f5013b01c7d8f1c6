#pragma once
// Device passwords read from the password file: one "id": "password" pair per line.
#include <cstdint>
#include <string_view>

#include "base/hash_map.h"
#include "base/small_string.h"

namespace qm {

class PasswordStore {
 public:
  // Fails (keeping the first value) when the key is already present.
  bool insert(std::string_view key, std::string_view value) { return map_.insert(key, SmallString(value)); }
  const SmallString* find(std::string_view key) const { return map_.find(key); }
  // The device id as upper-case hexadecimal without leading zeros, then "default".
  const SmallString* findForDevice(std::uint32_t device_id) const;
  std::uint32_t size() const { return map_.size(); }
  const HashMap<SmallString, SmallString>& map() const { return map_; }

 private:
  HashMap<SmallString, SmallString> map_;
};

// Matches every line of the text against the password-line pattern and stores the pairs.
// False only when the pattern cannot be compiled.
bool parsePasswordText(std::string_view text, PasswordStore& store);

// Finds and reads the password file (`path` is null when the option was not given) into the
// store. A missing file named explicitly ORs 1 into the exit status; the caller goes on anyway.
bool loadPasswordFile(const char* path, int* exit_status, PasswordStore& store);

}  // namespace qm
