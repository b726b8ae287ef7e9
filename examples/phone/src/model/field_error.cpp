#include "model/field_error.h"

namespace phone {

const char* nameOf(ErrorCode code) {
    switch (code) {
    case ErrorCode::required:
        return "required";
    case ErrorCode::tooShort:
        return "tooShort";
    case ErrorCode::tooLong:
        return "tooLong";
    case ErrorCode::badCharacters:
        return "badCharacters";
    case ErrorCode::notANumber:
        return "notANumber";
    case ErrorCode::tooSmall:
        return "tooSmall";
    case ErrorCode::tooLarge:
        return "tooLarge";
    case ErrorCode::badChoice:
        return "badChoice";
    case ErrorCode::badAddress:
        return "badAddress";
    case ErrorCode::badMask:
        return "badMask";
    case ErrorCode::badHost:
        return "badHost";
    case ErrorCode::badUrl:
        return "badUrl";
    case ErrorCode::notInNetwork:
        return "notInNetwork";
    case ErrorCode::reserved:
        return "reserved";
    case ErrorCode::mismatch:
        return "mismatch";
    case ErrorCode::wrongPassword:
        return "wrongPassword";
    case ErrorCode::same:
        return "same";
    case ErrorCode::tooCommon:
        return "tooCommon";
    case ErrorCode::tooMany:
        return "tooMany";
    case ErrorCode::duplicate:
        return "duplicate";
    case ErrorCode::notUtf8:
        return "notUtf8";
    case ErrorCode::notXml:
        return "notXml";
    case ErrorCode::unknownElement:
        return "unknownElement";
    case ErrorCode::wrongPassphrase:
        return "wrongPassphrase";
    case ErrorCode::otherVersion:
        return "otherVersion";
    }
    return "";
}

} // namespace phone
