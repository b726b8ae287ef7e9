// The passwords that attackers try first.
#ifndef MODEL_COMMON_PASSWORDS_H
#define MODEL_COMMON_PASSWORDS_H

#include <string_view>

namespace phone {

// Returns whether the password is one of the commonest, whatever the case of its letters and
// whatever digits and punctuation follow them: "Password2026!" is "password".
bool isCommonPassword(std::string_view password);

} // namespace phone

#endif
