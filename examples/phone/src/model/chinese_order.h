// The order of Chinese characters by their pronunciation.
#ifndef MODEL_CHINESE_ORDER_H
#define MODEL_CHINESE_ORDER_H

#include <cstdint>

namespace phone {

// Returns the place of the character among those in daily use, sorted by Pinyin, from 1; 0 for any
// other. A character with several readings is at the commonest one, also where it is a surname that
// is read otherwise.
std::uint16_t pinyinRank(char32_t character);

// Returns the first letter, 'A' to 'Z', of the reading of the character with this rank; '\0' for a
// rank that pinyinRank() never returns.
char pinyinLetter(std::uint16_t rank);

} // namespace phone

#endif
