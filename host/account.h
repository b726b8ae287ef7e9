// The account that the daemon runs as.
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

// Returns the account of "NAME", with the user's primary group, or of "NAME:GROUP". Returns nothing
// if there is no such user or group; `error` then says which.
std::optional<Account> findAccount(const std::string& text, std::string& error);

// Drops root's rights for good: makes this process run as `account`, with the groups that its user
// is a member of. Call as root, before the first thread is started. Returns false if the system
// refuses; `error` then says why, and the process must end, since only some ids may have changed.
bool become(const Account& account, std::string& error);

#endif
