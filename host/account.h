// Who the daemon runs as.
#ifndef ACCOUNT_H
#define ACCOUNT_H

#include <sys/types.h>

#include <optional>
#include <string>

struct Account {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
};

// The account of "NAME", with the user's own group, or of "NAME:GROUP". Nothing when there is no
// such user or group; `error` then says which.
std::optional<Account> findAccount(const std::string& text, std::string& error);

// Makes this process run as `account`, with the groups that its user is a member of, and no way
// back. For root, before a thread is started. False when the system refuses; `error` then says
// what, and the process must end, since it may be half-way.
bool become(const Account& account, std::string& error);

#endif
