// The variables of a FastCGI request.
#ifndef ENVIRONMENT_H
#define ENVIRONMENT_H

#include <cstring>

// The value of a variable, or null: what FCGX_GetParam() gives, which calls strncmp(3) for every
// variable there is. Most begin with another letter, and a request asks some ten times.
inline char* variableOf(char** environment, const char* name) {
    if (environment == nullptr)
        return nullptr;
    const std::size_t length = std::strlen(name);
    for (char** entry = environment; *entry != nullptr; ++entry)
        if (**entry == *name && std::strncmp(*entry, name, length) == 0 && (*entry)[length] == '=')
            return *entry + length + 1;
    return nullptr;
}

#endif
