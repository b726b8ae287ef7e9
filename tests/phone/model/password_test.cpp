#include "model/password.h"

#include "failing_calls.h"
#include "temporary_folder.h"

#include "model/common_passwords.h"
#include "model/password_store.h"

#include <gtest/gtest.h>
#include <new>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace phone;

namespace {

// Returns the peak memory use of this process in KiB.
long peakMemory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

TEST(CommonPasswords, AreRefusedWhateverIsAddedToThem) {
    for (const char* common :
         {"0123456789", "password", "PassWord", "password1", "Passwort2026!", "qwertzuiop",
          "zxcvbnm12", "zhongguo", "!!!!!!!!", "xxxxxxxx", "abcdefghij", "87654321"}) {
        EXPECT_TRUE(isCommonPassword(common)) << common;
    }
    for (const char* other : {"garden gate", "1password", "passwords", "abcdefgi", "13579135",
                              "\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC", "2026!2026!"}) {
        EXPECT_FALSE(isCommonPassword(other)) << other;
    }
}

TEST(Password, MatchesOnlyItsOwnHash) {
    const std::string hash = hashPassword("correct horse");
    EXPECT_TRUE(isPasswordHash(hash));
    EXPECT_EQ(hash.find("correct"), std::string::npos);
    EXPECT_TRUE(verifyPassword("correct horse", hash));
    for (const char* other : {"", "correct hors", "correct horse ", "Correct horse"}) {
        EXPECT_FALSE(verifyPassword(other, hash)) << other;
    }
    EXPECT_FALSE(verifyPassword(std::string_view("correct horse\0x", 15), hash));
}

TEST(Password, HasADifferentHashEachTime) {
    EXPECT_NE(hashPassword("same"), hashPassword("same"));
}

// Whoever reads the hash pays this for each guess.
TEST(Password, IsHashedWithYescryptInFourMebibytes) {
    EXPECT_EQ(hashPassword("correct horse").substr(0, 7), "$y$j7T$");
}

TEST(Password, IsLimitedInLengthBeforeHashing) {
    const std::string longest(kMaxPasswordBytes, 'x');
    const std::string hash = hashPassword(longest);
    EXPECT_TRUE(verifyPassword(longest, hash));
    EXPECT_EQ(hashPassword(longest + "x"), "");
    EXPECT_FALSE(verifyPassword(longest + "x", hash));
}

TEST(Password, DoesNotMatchAnInvalidHash) {
    for (const char* text : {"", "*", "*0", "*1", "admin", "$y$", "$y$x", "$y$j8T$:"}) {
        EXPECT_FALSE(verifyPassword("admin", text)) << text;
    }
    EXPECT_FALSE(isPasswordHash("$y$"));
    EXPECT_FALSE(isPasswordHash("$1$abc"));
    EXPECT_FALSE(isPasswordHash("$y$a:b"));
    EXPECT_FALSE(isPasswordHash("$y$" + std::string(1000, 'x')));
}

// The right password must not count as wrong.
TEST(Password, IsNotWrongWithoutTheMemoryToCheckIt) {
    const std::string hash = hashPassword("correct horse");
    failing_calls::fail(failing_calls::Call::crypt);
    EXPECT_THROW(static_cast<void>(verifyPassword("correct horse", hash)), std::bad_alloc);
    EXPECT_FALSE(verifyPassword("correct horse", "$y$x")) << "an invalid hash";
    failing_calls::fail(failing_calls::Call::none);
}

TEST(Password, UsesLittleMemoryForHashing) {
    const pid_t child = fork();
    if (child == 0) {
        const long before = peakMemory();
        const bool good = !hashPassword("correct horse").empty();
        _exit(good && peakMemory() - before < 6 * 1024 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// The files are checksummed, but an earlier version, or a hand, may have written them.
TEST(StoredPassword, MustHaveAUserAndAHash) {
    const std::string hash = hashPassword("right");
    for (const Credentials& wrong :
         {Credentials{"", hash, false}, Credentials{"admin", "right", false}}) {
        const TemporaryFolder folder;
        PasswordStore store(folder.file("password"));
        store.load();
        EXPECT_TRUE(store.save(wrong));
        EXPECT_FALSE(PasswordStore(folder.file("password")).load()) << wrong.user;
    }
}
