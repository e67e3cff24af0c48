// Signatures and base64.
#include "platform/crypto.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace kestrelon::platform;

using Bytes = std::vector<std::uint8_t>;

// A published example (RFC 6979, A.2.5: P-256, SHA-256, "sample") in hexadecimal digits.
const std::string kHead = "4543533120000000";
const std::string kX = "60fed4ba255a9d31c961eb74c6356d68c049b8923b61fa6ce669622e60f29fb6";
const std::string kY = "7903fe1008b8bc99a41ae9e95628bc64f2f1b20c2d7e9f5177a3c294d4462299";
const std::string kDigest = "af2bdbe1aa9b6ec1e2ade1d694f41fc71a831d0268e9891562113d8a62add1bf";
const std::string kR = "efd48b2aacb6a8fd1140dd9cd45e81d69d2c877b56aaf991c34d0ea84eaf3716";
const std::string kS = "f7cb1c942d657c41d436c7a1b6e29f65f3e900dbb9aff4064dc4ab2f843acda8";

// The order of the curve, n - 1, n - s; the base point, which is another key.
const std::string kN = "ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551";
const std::string kLast = kN.substr(0, 63) + "0";
const std::string kMinusS = "0834e36ad29a83bf2bc9385e491d6099c8fdf9d1ed67aa7ea5f51f93782857a9";
const std::string kBaseX = "6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296";
const std::string kBaseY = "4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5";
const std::string kZero(64, '0');
const std::string kMost(64, 'f');

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

bool Verifies(const std::string& blob, const std::string& digest, const std::string& signature) {
  Sha256Digest value{};
  std::ranges::copy(FromHex(digest), value.begin());
  return VerifyEcdsaP256(FromHex(blob), value, FromHex(signature)) == kSuccess;
}

TEST(VerifyEcdsaP256, TakesASignatureOfTheKeyAndNoHostileOne) {
  const std::string key = kHead + kX + kY;
  EXPECT_TRUE(Verifies(key, kDigest, kR + kS));
  // By the mathematics of the curve a second signature follows from each. That is no forgery: it
  // is for the same bytes.
  EXPECT_TRUE(Verifies(key, kDigest, kR + kMinusS));

  for (const std::string& number : {kZero, kN, kLast, kMost, kBaseX}) {
    for (const std::string& hostile : {number + number, number + kS, kR + number}) {
      EXPECT_FALSE(Verifies(key, kDigest, hostile)) << hostile;
    }
    EXPECT_FALSE(Verifies(key, number, kR + kS)) << "the digest " << number;
  }
  for (const std::string& hostile : {kS + kR, std::string(), kR, kR + kS.substr(2), "00" + kR + kS,
                                     "3046022100" + kR + "022100" + kS}) {
    EXPECT_FALSE(Verifies(key, kDigest, hostile)) << hostile;
  }
}

TEST(VerifyEcdsaP256, TakesNoSignatureWithMoreBehindIt) {
  EXPECT_FALSE(Verifies(kHead + kX + kY, kDigest, kR + kS + "00"));
  EXPECT_FALSE(Verifies(kHead + kX + kY, kDigest, kR + kS + kR + kS));
}

TEST(VerifyEcdsaP256, TakesNoSignatureOfAnotherKeyOrOfNone) {
  for (const std::string& blob :
       {kHead + kBaseX + kBaseY, kHead + kX + kY.substr(0, 63) + "8", kHead + kZero + kZero,
        kHead + kMost + kMost, kHead + kY + kX, kHead + kX, std::string(), kX + kY,
        "4543533220000000" + kX + kY, "4543533130000000" + kX + kY}) {
    EXPECT_FALSE(Verifies(blob, kDigest, kR + kS)) << blob;
    EXPECT_FALSE(Verifies(blob, kZero, kZero + kZero)) << blob;
  }
}

TEST(DecodeBase64, ToleratesWhiteSpaceAndMissingPaddingButNoOtherCharacter) {
  const struct {
    std::string text;
    Code code;
    Bytes bytes;
  } cases[] = {{"", kSuccess, {}},
               {"AAEC", kSuccess, {0, 1, 2}},
               {"+/+/", kSuccess, {0xFB, 0xFF, 0xBF}},
               {"Zm9vYg==", kSuccess, {'f', 'o', 'o', 'b'}},
               {"Zm9vYg", kSuccess, {'f', 'o', 'o', 'b'}},
               {" Zm9v\r\nYm\tE=\n", kSuccess, {'f', 'o', 'o', 'b', 'a'}},
               {"AAEC====", kSuccess, {0, 1, 2}},
               {"AA=", kInvalidData, {7}},
               {"A=AA", kInvalidData, {7}},
               {"AA*C", kInvalidData, {7}},
               {"AA-_", kInvalidData, {7}},
               {"AA\vC", kInvalidData, {7}},
               {{'A', 'A', '\0', 'C'}, kInvalidData, {7}}};
  for (const auto& c : cases) {
    Bytes bytes = {7};
    EXPECT_EQ(DecodeBase64(c.text, bytes), c.code) << c.text;
    EXPECT_EQ(bytes, c.bytes) << c.text;
  }
}

}  // namespace
