// Making secrets and comparing them.
#ifndef SECRETS_H
#define SECRETS_H

#include <string>
#include <string_view>

namespace phone {

// Whether the two are equal, in a time that tells nothing about `expected` but its length.
bool equalSecrets(std::string_view given, std::string_view expected);

// 32 hexadecimal digits that nobody can guess; empty when the system gives no random bytes.
std::string randomToken();

} // namespace phone

#endif
