#include "planex/infra/base64.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

std::string encoded(const Bytes& bytes, std::size_t pieceSize) {
  std::string text;
  etl::base64::Encoder encoder(text);
  for (std::size_t at = 0; at < bytes.size(); at += pieceSize) {
    encoder.Append(bytes.data() + at, std::min(pieceSize, bytes.size() - at));
  }
  encoder.Finish();
  return text;
}

/// One bit at a time, straight from the definition.
std::string reference(const Bytes& bytes) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
    std::size_t value = 0;
    for (std::size_t i = bit; i < bit + 6; ++i) {
      value = 2 * value + (i < 8 * bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1U : 0U);
    }
    text += alphabet[value];
  }
  while (text.size() % 4 != 0) text += '=';
  return text;
}

TEST(Base64, AgreesWithReferenceForEveryLengthAndPiece) {
  std::mt19937 random(1);
  for (std::size_t length = 0; length < 70; ++length) {
    Bytes bytes(length);
    for (auto& byte : bytes) byte = static_cast<unsigned char>(random());
    const std::string text = reference(bytes);
    for (const std::size_t piece : {1U, 2U, 3U, 4U, 5U, 100U}) {
      ASSERT_EQ(encoded(bytes, piece), text) << length << " bytes in pieces of " << piece;
    }
    std::size_t size = 0;
    ASSERT_TRUE(etl::base64::decodedSize(text, size));
    ASSERT_EQ(size, length);
    Bytes back(length + 1, 0xa5);
    ASSERT_TRUE(etl::base64::decode(text, back.data()));
    ASSERT_EQ(back[length], 0xa5) << "wrote past " << length << " bytes";
    back.pop_back();
    ASSERT_EQ(back, bytes);
  }
}

TEST(Base64, TakesTheAlphabetAloneAtEveryPlace) {
  // Padding in the last place leaves two bits of 't' (45) unused that are set: refused like the
  // rest of what is not in the alphabet.
  const std::string good = "QUJDREVGR0hJSktM";
  unsigned char bytes[12];
  for (std::size_t at = 0; at < good.size(); ++at) {
    int accepted = 0;
    for (int c = 0; c < 256; ++c) {
      std::string text = good;
      text[at] = static_cast<char>(c);
      accepted += etl::base64::decode(text, bytes) ? 1 : 0;
    }
    EXPECT_EQ(accepted, 64) << "at " << at;
  }
}

TEST(Base64, RefusesBadPadding) {
  unsigned char bytes[8];
  for (const char* text : {"=", "Q", "QQ", "QQ=", "Q===", "====", "QQ=Q", "=QQQ",
                           "QR==", "QQF=", "QQ==QQ==", "QUI=QUJD", " QQ==", "QQ==\n", "QU JD"}) {
    EXPECT_FALSE(etl::base64::decode(text, bytes)) << text;
  }
  EXPECT_TRUE(etl::base64::decode("QQ==", bytes));
  EXPECT_EQ(bytes[0], 'A');
}

}  // namespace
