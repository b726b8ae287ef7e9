#include "account.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

std::optional<Account> findAccount(const std::string& text, std::string& error) {
    const std::size_t colon = text.find(':');
    Account account;
    account.name = text.substr(0, colon);
    const passwd* user = getpwnam(account.name.c_str());
    if (user == nullptr) {
        error = "there is no user '" + account.name + "'";
        return std::nullopt;
    }
    account.uid = user->pw_uid;
    account.gid = user->pw_gid;
    if (colon == std::string::npos)
        return account;
    const std::string groupName = text.substr(colon + 1);
    const group* found = getgrnam(groupName.c_str());
    if (found == nullptr) {
        error = "there is no group '" + groupName + "'";
        return std::nullopt;
    }
    account.gid = found->gr_gid;
    return account;
}

bool become(const Account& account, std::string& error) {
    // The groups first: only root may set them.
    if (initgroups(account.name.c_str(), account.gid) == 0 &&
        setresgid(account.gid, account.gid, account.gid) == 0 &&
        setresuid(account.uid, account.uid, account.uid) == 0)
        return true;
    error = "cannot become the user " + account.name + ": " + std::strerror(errno);
    return false;
}
