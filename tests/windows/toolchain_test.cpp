// Checks that the libraries built for Windows work there (run under Wine): argtable2 as the
// converter's command line uses it, libcrypto's key derivation and AES-GCM decryption as the
// encrypted containers use them, and threads from the posix-thread runtime linked in statically.
#include <argtable2.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// One option table per test, freed at the end.
struct JobsTable {
  arg_int* jobs = arg_int0("j", "jobs", "<n>", "number of conversions at once");
  struct arg_end* end = arg_end(4);  // "struct": the function arg_end hides the name
  void* table[2] = {jobs, end};
  ~JobsTable() { arg_freetable(table, 2); }

  int parse(std::vector<std::string> args) {
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    return arg_parse(static_cast<int>(argv.size()), argv.data(), table);
  }
};

std::string hex(const unsigned char* data, size_t size) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (size_t i = 0; i < size; ++i) {
    out += digits[data[i] >> 4];
    out += digits[data[i] & 15];
  }
  return out;
}

TEST(Argtable, ParsesAnIntegerOptionInEitherSpelling) {
  JobsTable t;
  ASSERT_EQ(t.parse({"prog", "--jobs=12"}), 0);
  ASSERT_EQ(t.jobs->count, 1);
  EXPECT_EQ(t.jobs->ival[0], 12);

  JobsTable hexadecimal;
  ASSERT_EQ(hexadecimal.parse({"prog", "-j", "0x10"}), 0);
  EXPECT_EQ(hexadecimal.jobs->ival[0], 16);
}

// The test programs parse many command lines in one process: each parse must start from the
// first argument again (argtable2 resets its getopt with optind = 0).
TEST(Argtable, ReportsAMissingValueAndParsesAgainAfterwards) {
  JobsTable missing;
  EXPECT_EQ(missing.parse({"prog", "--jobs"}), 1);
  EXPECT_EQ(missing.jobs->count, 0);
  ASSERT_EQ(missing.end->count, 1);
  EXPECT_EQ(missing.end->error[0], ARG_EMISSARG);

  JobsTable after;
  ASSERT_EQ(after.parse({"prog", "-j", "3"}), 0);
  EXPECT_EQ(after.jobs->ival[0], 3);
}

TEST(Argtable, RejectsANumberTooLargeForAnInt) {
  JobsTable t;
  EXPECT_EQ(t.parse({"prog", "--jobs=99999999999"}), 1);
  EXPECT_EQ(t.jobs->count, 0);
}

// The published PBKDF2-HMAC-SHA256 vector: password "passwd", salt "salt", one iteration.
TEST(Libcrypto, DerivesTheKnownPbkdf2Key) {
  std::array<unsigned char, 64> key{};
  ASSERT_EQ(PKCS5_PBKDF2_HMAC("passwd", 6, reinterpret_cast<const unsigned char*>("salt"), 4, 1,
                              EVP_sha256(), static_cast<int>(key.size()), key.data()),
            1);
  EXPECT_EQ(hex(key.data(), key.size()),
            "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
            "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783");
}

// AES-256-GCM with an all-zero key and nonce over zeros. The 16-byte case is the published one;
// the 4 KiB one reaches the assembly paths for long inputs, whose calling convention differs on
// Windows. Decryption must give the zeros back and refuse a changed tag.
TEST(Libcrypto, DecryptsAndAuthenticatesAesGcm) {
  struct Case {
    size_t size;
    const char* tag;
  };
  const Case cases[] = {{16, "d0d1c8a799996bf0265b98b5d48ab919"},
                        {4096, "02f2e46a9e9e45511dcd94ac24f1f9b6"}};
  const unsigned char key[32] = {};
  const unsigned char nonce[12] = {};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.size);
    std::vector<unsigned char> zeros(c.size), sealed(c.size), opened(c.size, 0xff);
    std::array<unsigned char, 16> tag{};
    int n = 0;
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    ASSERT_NE(ctx, nullptr);
    ASSERT_EQ(EVP_EncryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr, key, nonce), 1);
    ASSERT_EQ(EVP_EncryptUpdate(ctx, sealed.data(), &n, zeros.data(), static_cast<int>(c.size)), 1);
    ASSERT_EQ(EVP_EncryptFinal_ex(ctx, sealed.data() + n, &n), 1);
    ASSERT_EQ(EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_GET_TAG, 16, tag.data()), 1);
    EXPECT_EQ(hex(sealed.data(), 16), "cea7403d4d606b6e074ec5d3baf39d18");
    EXPECT_EQ(hex(tag.data(), tag.size()), c.tag);

    for (bool tamper : {false, true}) {
      std::array<unsigned char, 16> expected = tag;
      if (tamper) expected[15] ^= 1;
      ASSERT_EQ(EVP_DecryptInit_ex(ctx, EVP_aes_256_gcm(), nullptr, key, nonce), 1);
      ASSERT_EQ(EVP_DecryptUpdate(ctx, opened.data(), &n, sealed.data(), static_cast<int>(c.size)), 1);
      ASSERT_EQ(EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_TAG, 16, expected.data()), 1);
      EXPECT_EQ(EVP_DecryptFinal_ex(ctx, opened.data() + n, &n), tamper ? 0 : 1);
    }
    EXPECT_EQ(opened, zeros);
    EVP_CIPHER_CTX_free(ctx);
  }
}

TEST(Runtime, ThreadsShareAMutex) {
  std::mutex mutex;
  long total = 0;
  std::vector<std::thread> workers;
  for (int w = 0; w < 4; ++w) {
    workers.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        std::lock_guard lock(mutex);
        ++total;
      }
    });
  }
  for (auto& t : workers) t.join();
  EXPECT_EQ(total, 40000);
}

}  // namespace
