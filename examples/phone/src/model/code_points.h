#ifndef MODEL_CODE_POINTS_H
#define MODEL_CODE_POINTS_H

namespace phone {

// Returns whether the character is one of those from `first` to `last`, both included.
constexpr bool isBetween(char32_t character, char32_t first, char32_t last) {
    return character >= first && character <= last;
}

} // namespace phone

#endif
