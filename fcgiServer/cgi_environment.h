// Access to the CGI environment of a FastCGI request.
#ifndef CGI_ENVIRONMENT_H
#define CGI_ENVIRONMENT_H

#include <cassert>
#include <cstddef>
#include <cstring>

// Returns the value of a variable, or null. Same result as FCGX_GetParam(), but compares the first
// character before calling strncmp(3): a request looks up about ten variables.
//   Null      a null `environment` has no variables; `name` must not be null.
//   Lifetime  the value belongs to the FastCGI request.
inline char* cgiVariable(char** environment, const char* name) {
    assert(name != nullptr);
    if (environment == nullptr)
        return nullptr;
    const std::size_t length = std::strlen(name);
    for (char** entry = environment; *entry != nullptr; ++entry)
        if (**entry == *name && std::strncmp(*entry, name, length) == 0 && (*entry)[length] == '=')
            return *entry + length + 1;
    return nullptr;
}

#endif
