#include "base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace {

int openSomething() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int number) {
    return ::fcntl(number, F_GETFD) != -1;
}

TEST(Descriptor, IsClosedWithItsOwner) {
    const int number = openSomething();
    {
        const base::Descriptor owner(number);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.get(), number);
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(Descriptor, OwnsNothingUnlessGivenOne) {
    base::Descriptor none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.get(), -1);
    EXPECT_TRUE(none.close());
}

TEST(Descriptor, MovesToAnotherOwner) {
    const int number = openSomething();
    base::Descriptor first(number);
    const base::Descriptor second(std::move(first));
    EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): what it leaves behind is the question
    EXPECT_EQ(second.get(), number);
    EXPECT_TRUE(isOpen(number));
}

TEST(Descriptor, StaysOpenWhenItsOwnerLetsItGo) {
    const int number = openSomething();
    {
        base::Descriptor owner(number);
        EXPECT_EQ(owner.release(), number);
        EXPECT_FALSE(owner);
        EXPECT_EQ(owner.release(), -1);
    }
    EXPECT_TRUE(isOpen(number));
    ::close(number);
}

TEST(Descriptor, IsClosedWhenAnotherTakesItsPlace) {
    const int former = openSomething();
    const int next = openSomething();
    base::Descriptor owner(former);
    base::Descriptor other(next);
    owner = std::move(other);
    EXPECT_FALSE(isOpen(former));
    EXPECT_TRUE(isOpen(next));
    EXPECT_EQ(owner.get(), next);
}

TEST(Descriptor, IsClosedOnceOnly) {
    const int number = openSomething();
    base::Descriptor owner(number);
    EXPECT_TRUE(owner.close());
    EXPECT_FALSE(isOpen(number));
    EXPECT_FALSE(owner);
    const int reused = openSomething();
    ASSERT_EQ(reused, number); // the lowest free number; see open(2)
    EXPECT_TRUE(owner.close());
    EXPECT_TRUE(isOpen(reused));
    ::close(reused);
}

TEST(Descriptor, ReportsAFailureToClose) {
    const int number = openSomething();
    base::Descriptor owner(number);
    ::close(number);
    EXPECT_FALSE(owner.close());
    EXPECT_EQ(errno, EBADF);
}

} // namespace
