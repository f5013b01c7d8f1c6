// Known answers for the system's crypto library (OpenSSL on Linux, CNG on Windows): both must
// derive the same keys and accept and refuse the same ciphertexts.
#include "platform/crypto.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#endif

namespace qm {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes fromHex(std::string_view hex) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return out;
}

std::string toHex(const std::uint8_t* data, std::size_t size) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < size; ++i) {
    out += digits[data[i] >> 4];
    out += digits[data[i] & 15];
  }
  return out;
}

std::string toHex(const Bytes& bytes) { return toHex(bytes.data(), bytes.size()); }

const std::uint8_t* bytesOf(std::string_view text) { return reinterpret_cast<const std::uint8_t*>(text.data()); }

// Wine's bcrypt takes every GCM call as a whole message (it restarts the counter and checks the
// tag each time), so decryption spread over several calls only works on Windows itself.
bool chainedGcmMissing() {
#ifdef _WIN32
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll && GetProcAddress(ntdll, "wine_get_version");
#else
  return false;
#endif
}

TEST(Pbkdf2HmacSha256, DerivesThePublishedKeys) {
  struct Case {
    std::string_view password;
    std::string_view salt;
    std::uint32_t iterations;
    std::string_view key;
  };
  const Case cases[] = {
      // RFC 7914, section 11.
      {"passwd", "salt", 1,
       "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
       "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783"},
      {"password", "salt", 1, "120fb6cffcf8b32c43e7225256c4f837a86548c92ccc35480805987cb70be17b"},
      {"password", "salt", 2, "ae4d0c95af6b46d32d0adff928f06dd02a303f8ef3c251dfd6e2d85a95474c43"},
      {"password", "salt", 4096, "c5e478d59288c841aa530db6845c4c8d962893a001ce4e11a4963873aa98134a"},
      // A stored count of 0 runs the first round all the same.
      {"password", "salt", 0, "120fb6cffcf8b32c43e7225256c4f837a86548c92ccc35480805987cb70be17b"},
      // An empty password is a password like any other.
      {"", "salt", 1, "f135c27993baf98773c5cdb40a5706ce6a345cde61b000a67858650cd6a324d7"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.password) + "/" + std::to_string(c.iterations));
    Bytes key(c.key.size() / 2);
    ASSERT_TRUE(pbkdf2HmacSha256(c.password, bytesOf(c.salt), c.salt.size(), c.iterations, key.data(), key.size()));
    EXPECT_EQ(toHex(key), c.key);
  }
}

TEST(Pbkdf2HmacSha256, RefusesCountsAboveTheLargestAtOnce) {
  std::uint8_t key[kAes256KeySize];
  for (std::uint32_t iterations : {kLargestPbkdf2Iterations + 1, std::uint32_t{0xffffffff}}) {
    EXPECT_FALSE(pbkdf2HmacSha256("pw", bytesOf("salt"), 4, iterations, key, sizeof key)) << iterations;
  }
}

// McGrew and Viega's GCM test cases 13, 14 and 16 (AES-256), the ones NIST's validation uses.
struct GcmVector {
  const char* name;
  std::string_view key, nonce, aad, plain, cipher, tag;
};

const GcmVector kGcmVectors[] = {
    {"case 13, empty", "0000000000000000000000000000000000000000000000000000000000000000",
     "000000000000000000000000", "", "", "", "530f8afbc74536b9a963b4f1c4cb738b"},
    {"case 14, one block", "0000000000000000000000000000000000000000000000000000000000000000",
     "000000000000000000000000", "", "00000000000000000000000000000000", "cea7403d4d606b6e074ec5d3baf39d18",
     "d0d1c8a799996bf0265b98b5d48ab919"},
    {"case 16, additional data", "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308",
     "cafebabefacedbaddecaf888", "feedfacedeadbeeffeedfacedeadbeefabaddad2",
     "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
     "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b39",
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa"
     "8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662",
     "76fc6ece0f4e1768cddf8853bb2d551b"},
};

// Decrypts in one final step; the plaintext, or "<tag mismatch>" or "<failed>".
std::string decryptWhole(const Bytes& key, const Bytes& nonce, const Bytes& aad, const Bytes& cipher,
                         const Bytes& tag) {
  GcmDecryption gcm;
  if (!gcm.start(key.data(), nonce.data()) || !gcm.addAuthenticatedData(aad.data(), aad.size())) return "<failed>";
  Bytes plain(cipher.size() + 1);
  std::size_t produced = 0;
  GcmResult result = gcm.finish(cipher.data(), cipher.size(), plain.data(), &produced, tag.data());
  if (result == GcmResult::kTagMismatch) return "<tag mismatch>";
  if (result != GcmResult::kAuthentic || produced != cipher.size()) return "<failed>";
  return toHex(plain.data(), produced);
}

TEST(AesGcm, EncryptsAndDecryptsThePublishedVectors) {
  for (const GcmVector& v : kGcmVectors) {
    SCOPED_TRACE(v.name);
    Bytes key = fromHex(v.key), nonce = fromHex(v.nonce), aad = fromHex(v.aad), plain = fromHex(v.plain);
    Bytes cipher(plain.size());
    Bytes tag(kGcmTagSize);
    ASSERT_TRUE(gcmEncrypt(key.data(), nonce.data(), aad.data(), aad.size(), plain.data(), plain.size(),
                           cipher.data(), tag.data()));
    EXPECT_EQ(toHex(cipher), v.cipher);
    EXPECT_EQ(toHex(tag), v.tag);
    EXPECT_EQ(decryptWhole(key, nonce, aad, cipher, tag), v.plain);
  }
}

TEST(AesGcm, RefusesAnyChangedByte) {
  for (const GcmVector& v : kGcmVectors) {
    SCOPED_TRACE(v.name);
    const Bytes key = fromHex(v.key), nonce = fromHex(v.nonce), aad = fromHex(v.aad), cipher = fromHex(v.cipher),
                tag = fromHex(v.tag);
    for (std::size_t bit : {0, 7, 127}) {
      Bytes changed_tag = tag;
      changed_tag[bit / 8] ^= static_cast<std::uint8_t>(1 << (bit % 8));
      EXPECT_EQ(decryptWhole(key, nonce, aad, cipher, changed_tag), "<tag mismatch>") << bit;
    }
    Bytes changed_nonce = nonce;
    changed_nonce[11] ^= 1;
    EXPECT_EQ(decryptWhole(key, changed_nonce, aad, cipher, tag), "<tag mismatch>");
    Bytes changed_key = key;
    changed_key[31] ^= 1;
    EXPECT_EQ(decryptWhole(changed_key, nonce, aad, cipher, tag), "<tag mismatch>");
    Bytes extra_aad = aad;
    extra_aad.push_back(0);
    EXPECT_EQ(decryptWhole(key, nonce, extra_aad, cipher, tag), "<tag mismatch>");
    if (!aad.empty()) {
      Bytes changed_aad = aad;
      changed_aad[0] ^= 0x80;
      EXPECT_EQ(decryptWhole(key, nonce, changed_aad, cipher, tag), "<tag mismatch>");
    }
    if (!cipher.empty()) {
      Bytes changed_cipher = cipher;
      changed_cipher.back() ^= 1;
      EXPECT_EQ(decryptWhole(key, nonce, aad, changed_cipher, tag), "<tag mismatch>");
    }
  }
}

// How a message is handed over: the update steps, each read in place (from the output buffer,
// where the whole ciphertext was copied first, as the program does) or from a buffer of its
// own; the rest of the message goes to finish, read in place or not.
struct Step {
  std::size_t size;
  bool in_place;
};

struct Pieces {
  std::vector<Step> steps;
  bool finish_in_place;
  // How far the output may trail the input taken; in place, a step may hold back everything.
  std::size_t most_behind = SIZE_MAX;
};

GcmResult decryptInPieces(const Bytes& key, const Bytes& nonce, const Bytes& aad, const Bytes& cipher,
                          const Bytes& tag, const Pieces& p, Bytes* plain) {
  GcmDecryption gcm;
  if (!gcm.start(key.data(), nonce.data()) || !gcm.addAuthenticatedData(aad.data(), aad.size())) {
    return GcmResult::kFailed;
  }
  // The output buffer holds the ciphertext only where it is read in place; elsewhere it holds
  // something else, so that reading from the wrong buffer shows.
  Bytes buffer = cipher;
  std::size_t read = 0, written = 0, produced = 0;
  for (const Step& step : p.steps) {
    for (std::size_t i = read; !step.in_place && i < read + step.size; ++i) buffer[i] ^= 0x5a;
    read += step.size;
  }
  for (std::size_t i = read; !p.finish_in_place && i < buffer.size(); ++i) buffer[i] ^= 0x5a;
  read = 0;
  for (const Step& step : p.steps) {
    const std::uint8_t* input = (step.in_place ? buffer.data() : cipher.data()) + read;
    if (!gcm.update(input, step.size, buffer.data() + written, &produced)) return GcmResult::kFailed;
    read += step.size;
    written += produced;
    // Output never runs ahead of the input taken.
    if (written > read || read - written > p.most_behind) return GcmResult::kFailed;
  }
  const std::uint8_t* input = (p.finish_in_place ? buffer.data() : cipher.data()) + read;
  GcmResult result = gcm.finish(input, cipher.size() - read, buffer.data() + written, &produced, tag.data());
  written += produced;
  if (result != GcmResult::kAuthentic) return result;
  if (written != cipher.size()) return GcmResult::kFailed;
  *plain = buffer;
  return result;
}

// Steps of one size until at most one is left for finish, or all of it with finish getting none.
Pieces evenPieces(std::size_t total, std::size_t piece, bool in_place, bool empty_finish) {
  Pieces p{{}, in_place};
  std::size_t left = total;
  for (; left > piece || (empty_finish && left != 0); left -= left < piece ? left : piece) {
    p.steps.push_back({left < piece ? left : piece, in_place});
  }
  return p;
}

struct Message {
  Bytes key, nonce, aad, plain, cipher, tag, wrong_tag;
};

// Long enough for several pieces of every size tried, and not a whole number of blocks.
constexpr std::size_t kSeveralPieces = 3 * 4099 + 5;

Message messageOf(std::size_t size) {
  const GcmVector& v = kGcmVectors[2];
  Message m{fromHex(v.key), fromHex(v.nonce), fromHex(v.aad), Bytes(size), Bytes(size), Bytes(kGcmTagSize), {}};
  for (std::size_t i = 0; i < size; ++i) m.plain[i] = static_cast<std::uint8_t>(i * 131 + i / 251);
  EXPECT_TRUE(gcmEncrypt(m.key.data(), m.nonce.data(), m.aad.data(), m.aad.size(), m.plain.data(), size,
                         m.cipher.data(), m.tag.data()));
  m.wrong_tag = m.tag;
  m.wrong_tag[5] ^= 4;
  return m;
}

void expectDecrypts(const Message& m, const Pieces& p) {
  Bytes out;
  ASSERT_EQ(decryptInPieces(m.key, m.nonce, m.aad, m.cipher, m.tag, p, &out), GcmResult::kAuthentic);
  EXPECT_TRUE(out == m.plain);
  EXPECT_EQ(decryptInPieces(m.key, m.nonce, m.aad, m.cipher, m.wrong_tag, p, &out), GcmResult::kTagMismatch);
}

// The way the program decrypts a container: piece after piece in place, the last with the tag.
TEST(AesGcm, DecryptsInPlaceInContiguousPieces) {
  const Message m = messageOf(kSeveralPieces);
  const std::size_t uneven_total = 1 + 7 + 16 + 17 + 4099;
  Pieces uneven{{{1, true}, {7, true}, {16, true}, {17, true}, {4099, true}}, true};
  {
    SCOPED_TRACE("uneven, the rest to finish");
    expectDecrypts(m, uneven);
  }
  {
    SCOPED_TRACE("uneven, finish empty");
    Pieces all = uneven;
    all.steps.push_back({m.cipher.size() - uneven_total, true});
    expectDecrypts(m, all);
  }
  {
    // An empty step has no place of its own to break the run.
    SCOPED_TRACE("an empty step from elsewhere");
    expectDecrypts(m, Pieces{{{7, true}, {0, false}, {4099, true}}, true});
  }
  for (std::size_t piece : {1, 7, 16, 17, 4099}) {
    for (bool empty_finish : {false, true}) {
      SCOPED_TRACE(std::to_string(piece) + (empty_finish ? " empty finish" : ""));
      expectDecrypts(m, evenPieces(m.cipher.size(), piece, true, empty_finish));
    }
  }
}

TEST(AesGcm, DecryptsFromASeparateBufferInPiecesOfAnySize) {
  if (chainedGcmMissing()) GTEST_SKIP() << "Wine's bcrypt does not chain GCM calls";
  const Message m = messageOf(kSeveralPieces);
  for (std::size_t piece : {1, 7, 16, 17, 4099}) {
    for (bool empty_finish : {false, true}) {
      SCOPED_TRACE(std::to_string(piece) + (empty_finish ? " empty finish" : ""));
      Pieces p = evenPieces(m.cipher.size(), piece, false, empty_finish);
      p.finish_in_place = false;
      // Nothing but CNG's need for whole blocks holds output back.
      p.most_behind = 16;
      expectDecrypts(m, p);
    }
  }
}

// Pieces that start in place and then come from elsewhere, or the other way round: whatever was
// held back for later must still come out where the caller's output stands.
TEST(AesGcm, DecryptsPiecesThatStopOrStartBeingInPlace) {
  // Within one block Wine gets it right too: everything ends in the single final call.
  for (std::size_t size : {std::size_t{16}, kSeveralPieces}) {
    if (size > 16 && chainedGcmMissing()) continue;
    const Message m = messageOf(size);
    const struct {
      const char* name;
      Pieces pieces;
    } cases[] = {
        {"in place, then elsewhere", {{{7, true}, {5, false}}, true}},
        {"in place, then finish elsewhere", {{{7, true}, {5, true}}, false}},
        {"elsewhere, then in place", {{{7, false}, {5, true}}, true}},
    };
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.name) + ", " + std::to_string(size) + " bytes");
      expectDecrypts(m, c.pieces);
    }
  }
}

TEST(AesGcm, RefusesStepsOutOfOrder) {
  const GcmVector& v = kGcmVectors[2];
  Bytes key = fromHex(v.key), nonce = fromHex(v.nonce), aad = fromHex(v.aad), cipher = fromHex(v.cipher),
        tag = fromHex(v.tag);
  Bytes out(cipher.size() + 16);
  std::size_t produced = 0;

  GcmDecryption not_started;
  EXPECT_FALSE(not_started.addAuthenticatedData(aad.data(), aad.size()));
  EXPECT_FALSE(not_started.update(cipher.data(), 16, out.data(), &produced));
  EXPECT_EQ(not_started.finish(cipher.data(), cipher.size(), out.data(), &produced, tag.data()), GcmResult::kFailed);

  GcmDecryption late_data;
  ASSERT_TRUE(late_data.start(key.data(), nonce.data()));
  ASSERT_TRUE(late_data.update(cipher.data(), 16, out.data(), &produced));
  EXPECT_FALSE(late_data.addAuthenticatedData(aad.data(), aad.size()));

  GcmDecryption twice;
  ASSERT_TRUE(twice.start(key.data(), nonce.data()));
  EXPECT_FALSE(twice.start(key.data(), nonce.data()));
  ASSERT_TRUE(twice.addAuthenticatedData(aad.data(), aad.size()));
  ASSERT_EQ(twice.finish(cipher.data(), cipher.size(), out.data(), &produced, tag.data()), GcmResult::kAuthentic);
  EXPECT_EQ(twice.finish(cipher.data(), 0, out.data(), &produced, tag.data()), GcmResult::kFailed);
  EXPECT_FALSE(twice.update(cipher.data(), 16, out.data(), &produced));
}

}  // namespace
}  // namespace qm
