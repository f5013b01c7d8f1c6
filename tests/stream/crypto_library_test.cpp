#include "stream/crypto_library.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace qm {
namespace {

TEST(CryptoLibrary, AMissingLibraryIsRefusedAndLeavesTheTableAsItWas) {
  CryptoLibrary library{};
  EXPECT_FALSE(loadCryptoLibrary("libcrypto-that-is-not-installed.so.3", &library));
  EXPECT_EQ(library.pbkdf2_hmac, nullptr);
  // A library that loads but lacks the functions is refused too.
  EXPECT_FALSE(loadCryptoLibrary("libm.so.6", &library));
  EXPECT_EQ(library.decrypt_update, nullptr);
}

TEST(CryptoLibrary, TheInstalledLibraryIsLoadedOnceForEveryThread) {
  // Workers meet their first encrypted container at the same time.
  std::vector<const CryptoLibrary*> seen(4, nullptr);
  std::vector<std::thread> threads;
  for (auto& slot : seen) threads.emplace_back([&slot] { slot = cryptoLibrary(); });
  for (auto& thread : threads) thread.join();
  ASSERT_NE(seen[0], nullptr);
  for (const CryptoLibrary* library : seen) EXPECT_EQ(library, seen[0]);
  EXPECT_NE(seen[0]->aes_256_gcm(), nullptr);
}

}  // namespace
}  // namespace qm
