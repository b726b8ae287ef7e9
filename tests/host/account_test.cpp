#include "account.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace {

TEST(Account, HasTheIdAndThePrimaryGroupOfItsUser) {
    std::string error;
    const auto account = findAccount("www-data", error);
    ASSERT_TRUE(account) << error;
    const passwd* user = getpwnam("www-data");
    EXPECT_EQ(account->name, "www-data");
    EXPECT_EQ(account->uid, user->pw_uid);
    EXPECT_EQ(account->gid, user->pw_gid);
}

TEST(Account, HasTheGroupAfterTheColon) {
    std::string error;
    const auto account = findAccount("www-data:daemon", error);
    ASSERT_TRUE(account) << error;
    EXPECT_EQ(account->uid, getpwnam("www-data")->pw_uid);
    EXPECT_EQ(account->gid, getgrnam("daemon")->gr_gid);
    EXPECT_NE(account->gid, getpwnam("www-data")->pw_gid);
}

TEST(Account, IsNotFoundForAnUnknownUserOrGroup) {
    struct Case {
        const char* text;
        const char* error;
    };
    for (const Case& wrong :
         {Case{"no-such-user", "there is no user 'no-such-user'"},
          Case{":daemon", "there is no user ''"}, Case{"0", "there is no user '0'"},
          Case{"root:", "there is no group ''"},
          Case{"root:no-such-group", "there is no group 'no-such-group'"}}) {
        std::string error;
        EXPECT_FALSE(findAccount(wrong.text, error)) << wrong.text;
        EXPECT_EQ(error, wrong.error);
    }
}

// Returns whether this process has the ids of the account only, and cannot change them.
bool hasOnlyIdsOf(const Account& account) {
    uid_t users[3];
    gid_t groups[3];
    if (getresuid(&users[0], &users[1], &users[2]) != 0 ||
        getresgid(&groups[0], &groups[1], &groups[2]) != 0)
        return false;
    std::vector<gid_t> others(getgroups(0, nullptr));
    if (getgroups(static_cast<int>(others.size()), others.data()) < 0)
        return false;
    const auto isItsUser = [&](uid_t user) { return user == account.uid; };
    const auto isItsGroup = [&](gid_t group) { return group == account.gid; };
    return std::all_of(users, users + 3, isItsUser) &&
           std::all_of(groups, groups + 3, isItsGroup) &&
           std::all_of(others.begin(), others.end(), isItsGroup) && setuid(0) != 0 &&
           setgid(0) != 0;
}

// Runs `body` in a child process, since dropping root's rights is for good. Returns its result.
template <class Body>
int inChildProcess(Body body) {
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Account, ReplacesAllIdsAndGroupsOfRoot) {
    std::string error;
    const auto account = findAccount("nobody", error);
    ASSERT_TRUE(account) << error;
    const int outcome = inChildProcess([&account] {
        const gid_t rootsGroups[] = {0, 1, 2};
        if (getuid() == 0 && setgroups(3, rootsGroups) != 0)
            return 1;
        std::string refusal;
        if (!become(*account, refusal))
            return refusal == "cannot become the user nobody: Operation not permitted" ? 2 : 3;
        return hasOnlyIdsOf(*account) ? 0 : 4;
    });
    EXPECT_EQ(outcome, getuid() == 0 ? 0 : 2);
}

TEST(Account, CannotBeChangedWithoutRootsRights) {
    const int outcome = inChildProcess([] {
        std::string error;
        const auto nobody = findAccount("nobody", error);
        const auto root = findAccount("root", error);
        if (getuid() == 0 && !become(*nobody, error))
            return 1;
        return become(*root, error) ? 2 : 0;
    });
    EXPECT_EQ(outcome, 0);
}

} // namespace
