#include "base/failure.h"

#include "platform/system_error.h"

namespace qm {

SmallString describeFailure(const Failure& failure) {
  switch (failure.reason) {
    case FailureReason::kNone:
      return SmallString("no failure");
    case FailureReason::kSystem:
      return SmallString(systemErrorText(failure.system_error));
    case FailureReason::kEmptyFile:
      return SmallString("the file is empty");
    case FailureReason::kNotMdf:
      return SmallString("not an MDF4 file");
    case FailureReason::kMdfUnreadable:
      return SmallString("its MDF4 blocks could not be read");
    case FailureReason::kContainerMalformed:
      return SmallString("the container is too short or of an unknown version");
    case FailureReason::kCompressedDamaged:
      return SmallString("the compressed container is damaged");
    case FailureReason::kEncryptedUnreadable:
      return SmallString("the encrypted container could not be read");
    case FailureReason::kWrongPasswordOrDamaged:
      return SmallString("wrong password, or the file is damaged");
    case FailureReason::kCryptoFailed:
      return SmallString("the crypto library failed to decrypt it");
    case FailureReason::kNoMemory:
      return SmallString("not enough memory");
  }
  return SmallString("unknown failure");
}

}  // namespace qm
