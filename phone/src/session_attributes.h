// What the pages keep in a session. A session never deletes what its attributes point to; these
// point to things that live as long as the library.
#ifndef SESSION_ATTRIBUTES_H
#define SESSION_ATTRIBUTES_H

namespace phone {

constexpr const char* kUserAttribute = "user";         // const WebUser*
constexpr const char* kRoleAttribute = "role";         // const char*
constexpr const char* kLanguageAttribute = "language"; // const char*

} // namespace phone

#endif
