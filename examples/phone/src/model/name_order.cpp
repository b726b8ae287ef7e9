#include "model/name_order.h"

#include "model/chinese_order.h"
#include "model/folded_text.h"

namespace phone {
namespace {

// Chinese characters with a rank are moved here, by that rank. The characters that already are here
// are rare.
constexpr char32_t kRanked = 0x3400;
constexpr char32_t kChinese = 0x4E00;
constexpr char32_t kChineseEnd = 0xA000;

char32_t weightOf(char32_t character) {
    const std::uint16_t rank = pinyinRank(character);
    return rank == 0 ? character : kRanked + rank;
}

} // namespace

bool sortsBefore(std::string_view left, std::string_view right) {
    FoldedReader leftReader(left);
    FoldedReader rightReader(right);
    while (true) {
        const char32_t leftWeight = weightOf(leftReader.next());
        const char32_t rightWeight = weightOf(rightReader.next());
        if (leftWeight != rightWeight) {
            return leftWeight < rightWeight;
        }
        if (leftWeight == 0) {
            return left < right;
        }
    }
}

char sectionOf(std::string_view name, ChineseNames chinese) {
    const char32_t first = FoldedReader(name).next();
    if (first < U'a') {
        return kSymbolSection;
    }
    if (first <= U'z') {
        return static_cast<char>('A' + (first - U'a'));
    }
    if (first < kChinese || first >= kChineseEnd) {
        return kOtherSection;
    }
    if (chinese == ChineseNames::last) {
        return kChineseSection;
    }
    const std::uint16_t rank = pinyinRank(first);
    return rank != 0 ? pinyinLetter(rank) : kOtherSection;
}

int placeOfSection(char section) {
    switch (section) {
    case kSymbolSection:
        return 0;
    case kOtherSection:
        return 'Z' + 1;
    case kChineseSection:
        return 'Z' + 2;
    default:
        return section;
    }
}

} // namespace phone
