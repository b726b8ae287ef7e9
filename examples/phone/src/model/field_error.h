// What is wrong with a value that somebody entered or sent.
#ifndef MODEL_FIELD_ERROR_H
#define MODEL_FIELD_ERROR_H

#include <optional>
#include <string>
#include <vector>

namespace phone {

enum class ErrorCode {
    required,
    tooShort,
    tooLong,
    badCharacters,
    notANumber,
    tooSmall,
    tooLarge,
    badChoice,
    badAddress,
    badMask,
    badHost,
    notInNetwork,
    reserved,
    mismatch,
    wrongPassword,
    same,
    tooMany,
    duplicate,
    notUtf8,
    notXml,         // of a configuration only
    unknownElement, // of a configuration only
};

// The code's name as the list above spells it. Never null, lives as long as the program.
const char* nameOf(ErrorCode code);

struct FieldError {
    std::string field;
    ErrorCode code;
    // The number that the message names: of tooShort, tooLong (characters), tooSmall, tooLarge and
    // tooMany.
    std::optional<long> limit;
};

// In the order of the fields, no more than one for a field. Empty: all is well.
using Errors = std::vector<FieldError>;

} // namespace phone

#endif
