// Errors in values that a user or another program sent.
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
    badUrl,
    notInNetwork,
    reserved,
    mismatch,
    wrongPassword,
    same,
    tooCommon,
    tooMany,
    duplicate,
    notUtf8,
    notXml,          // configurations only
    unknownElement,  // configurations only
    wrongPassphrase, // encrypted backups only
    otherVersion,    // encrypted backups only
};

// Returns the name of the code as spelled above. Never null; static storage.
const char* nameOf(ErrorCode code);

struct FieldError {
    std::string field;
    ErrorCode code;
    // The number in the message of tooShort, tooLong (characters), tooSmall, tooLarge and tooMany.
    std::optional<long> limit;
};

// In the order of the fields, at most one for each. Empty means success.
using Errors = std::vector<FieldError>;

} // namespace phone

#endif
