#include "failing_calls.h"
#include "model/sealed_text.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

using namespace phone;

namespace {

constexpr const char* kPassphrase = "seven quiet hens";

class SealedText : public ::testing::Test {
protected:
    ~SealedText() override { failing_calls::fail(failing_calls::Call::none); }

    static SealFault faultOf(const std::string& file, const std::string& passphrase = kPassphrase) {
        const Unsealed unsealed = unseal(file, passphrase);
        EXPECT_TRUE(unsealed.fault == SealFault::none || unsealed.text.empty());
        return unsealed.fault;
    }
    // Returns the fault while making a key fails, so that none can have been made.
    static SealFault faultWithoutKey(const std::string& file) {
        failing_calls::fail(failing_calls::Call::argon2);
        const SealFault fault = faultOf(file);
        failing_calls::fail(failing_calls::Call::none);
        return fault;
    }
};

} // namespace

TEST_F(SealedText, IsOpenedWithItsPassphrase) {
    using namespace std::string_literals;
    for (const std::string& text : {""s, "a"s, "with a zero \0 byte"s, std::string(100'000, 'x')}) {
        const std::string file = seal(text, kPassphrase);
        EXPECT_EQ(file.size(), text.size() + kSealBytes);
        EXPECT_TRUE(isSealed(file));
        const Unsealed unsealed = unseal(file, kPassphrase);
        EXPECT_EQ(unsealed.fault, SealFault::none);
        EXPECT_EQ(unsealed.text, text);
    }
}

TEST_F(SealedText, IsNotOpenedWithAnotherPassphrase) {
    const std::string file = seal("text", kPassphrase);
    for (const char* other : {"", "seven quiet hen", "seven quiet hens ", "Seven quiet hens"}) {
        EXPECT_EQ(faultOf(file, other), SealFault::notOpened) << other;
    }
}

TEST_F(SealedText, ContainsNothingOfTextAndPassphrase) {
    const std::string text = "a secret of many letters";
    const std::string file = seal(text, kPassphrase);
    for (std::size_t at = 0; at + 4 <= text.size(); ++at) {
        EXPECT_EQ(file.find(text.substr(at, 4)), std::string::npos) << at;
    }
    EXPECT_EQ(file.find("hens"), std::string::npos);
}

TEST_F(SealedText, IsAnotherFileEachTime) {
    const std::string one = seal("text", kPassphrase);
    const std::string other = seal("text", kPassphrase);
    const std::size_t salt = 20;
    const std::size_t nonce = salt + 16;
    const std::size_t encrypted = nonce + 24;
    EXPECT_EQ(one.substr(0, salt), other.substr(0, salt));
    EXPECT_NE(one.substr(salt, 16), other.substr(salt, 16));
    EXPECT_NE(one.substr(nonce, 24), other.substr(nonce, 24));
    EXPECT_NE(one.substr(encrypted), other.substr(encrypted));
}

TEST_F(SealedText, IsNotOpenedWithAnyByteChanged) {
    const std::string file = seal("text", kPassphrase);
    for (std::size_t at = 0; at < file.size(); ++at) {
        std::string changed = file;
        changed[at] = static_cast<char>(changed[at] ^ (1 << at % 8));
        EXPECT_NE(faultOf(changed), SealFault::none) << at;
    }
}

TEST_F(SealedText, IsNotOpenedWithBytesMissingOrAdded) {
    const std::string file = seal("text", kPassphrase);
    for (std::size_t size = 0; size < file.size(); ++size) {
        EXPECT_NE(faultOf(file.substr(0, size)), SealFault::none) << size;
    }
    EXPECT_EQ(faultOf(file + '\0'), SealFault::notOpened);
    EXPECT_EQ(faultOf(file + file), SealFault::notOpened);
    EXPECT_EQ(faultOf(file.substr(0, 30) + file.substr(31)), SealFault::notOpened);
}

// The attack: parts of two files with the same passphrase, of which the attacker knows one text.
TEST_F(SealedText, IsNotOpenedWithPartsOfAnotherFile) {
    const std::string one = seal("text", kPassphrase);
    const std::string other = seal("TEXT", kPassphrase);
    for (const std::size_t cut : {36U, 60U, 64U}) {
        EXPECT_EQ(faultOf(one.substr(0, cut) + other.substr(cut)), SealFault::notOpened) << cut;
    }
}

// The attack: files that make the phone work for nothing.
TEST_F(SealedText, MakesNoKeyForAFileThatCannotBeOne) {
    const std::string file = seal("text", kPassphrase);
    EXPECT_EQ(faultWithoutKey(""), SealFault::notSealed);
    EXPECT_EQ(faultWithoutKey("<configuration/>"), SealFault::notSealed);
    EXPECT_EQ(faultWithoutKey("desk phone backup"), SealFault::notSealed);
    EXPECT_EQ(faultWithoutKey(file.substr(0, 20)), SealFault::notOpened);
    EXPECT_EQ(faultWithoutKey(file.substr(0, kSealBytes - 1)), SealFault::notOpened);
    for (const char* version : {"2\n", "0\n", "10\n", "1 ", "1", "", "4294967296\n"}) {
        const std::string changed = "desk phone backup " + std::string(version) + file.substr(20);
        EXPECT_EQ(faultWithoutKey(changed), SealFault::otherVersion) << version;
        EXPECT_TRUE(isSealed(changed)) << version;
    }
}

TEST_F(SealedText, ReportsMissingMemoryAsSuch) {
    const std::string file = seal("text", kPassphrase);
    failing_calls::fail(failing_calls::Call::argon2);
    EXPECT_THROW(seal("text", kPassphrase), std::bad_alloc);
    EXPECT_THROW(unseal(file, kPassphrase), std::bad_alloc);
}

// A file that version 1 has written must be opened by every later one.
TEST_F(SealedText, OfEarlierReleasesIsOpened) {
    const std::string file = "desk phone backup 1\n"
                             "\x56\x9d\x39\x37\x07\xa6\xb0\x33\xa6\x49\x8d\xc7\x2d\x62\xa7\x78"
                             "\x1e\xe2\x39\x7d\x93\x1a\x48\xd7\x15\xee\x73\x89\xc1\x9d\xf6\x1e"
                             "\xd3\x52\xf2\x89\xfe\x73\xbf\xc5\xa2\xa1\x8c\xfa\x9d\xb4\xd6\xd2"
                             "\xe9\x1e\xf0\xda\x02\xaf\x9c\x44\xba\x7d\x3b\xe7";
    const Unsealed unsealed = unseal(file, kPassphrase);
    EXPECT_EQ(unsealed.fault, SealFault::none);
    EXPECT_EQ(unsealed.text, "kept");
}
