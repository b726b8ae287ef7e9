// The errors of a form as one line of text.
#ifndef ERROR_TEXTS_H
#define ERROR_TEXTS_H

#include "model/field_error.h"

#include <string>

// Returns, for example, "port: tooLarge 65535, server: required"; empty without errors.
inline std::string textOf(const phone::Errors& errors) {
    std::string text;
    for (const phone::FieldError& error : errors) {
        text += (text.empty() ? "" : ", ") + error.field + ": " + phone::nameOf(error.code);
        text += error.limit ? " " + std::to_string(*error.limit) : "";
    }
    return text;
}

#endif
