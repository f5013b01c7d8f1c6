#pragma once
// Why an operation failed, carried up through the layers to the one place that reports it: a
// reason the program names, and the system's error number where the system said why. The
// results the layers return (null, -1, false) stay as they are; this travels beside them.
#include "base/small_string.h"

namespace qm {

enum class FailureReason {
  kNone,
  kSystem,                 // the system refused; its error number says why
  kEmptyFile,
  kNotMdf,                 // the identification is not an MDF4 one
  kMdfUnreadable,          // an MDF4 file whose blocks could not be read
  kContainerMalformed,     // a container header or its fixed fields that cannot be
  kCompressedDamaged,      // compressed data that does not decode
  kEncryptedUnreadable,    // the encrypted container could not be read
  kWrongPasswordOrDamaged, // the tag does not match
  kCryptoFailed,           // the crypto library failed
  kNoMemory,
};

struct Failure {
  FailureReason reason = FailureReason::kNone;
  int system_error = 0;  // with kSystem

  static Failure system(int error) { return {FailureReason::kSystem, error}; }
  explicit operator bool() const { return reason != FailureReason::kNone; }
};

// "the file is empty", "Permission denied" (the system's words).
SmallString describeFailure(const Failure& failure);

// Sets *where, when given, and returns the null or false the caller returns next to it.
inline std::nullptr_t fail(Failure* where, Failure failure) {
  if (where) *where = failure;
  return nullptr;
}

}  // namespace qm
