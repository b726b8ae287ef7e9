#include "QKSTL/QKHashMap.h"

#include <cstring>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

template <class TYPE>
class RawElements {
public:
    explicit RawElements(unsigned char filling) { std::memset(m_bytes, filling, sizeof m_bytes); }
    TYPE* get() { return reinterpret_cast<TYPE*>(m_bytes); }
    unsigned char byte(std::size_t index) const { return m_bytes[index]; }

private:
    alignas(TYPE) unsigned char m_bytes[4 * sizeof(TYPE)];
};

// Records its own destruction.
struct Mortal {
    ~Mortal() { *m_ends += m_name; }
    std::string* m_ends;
    char m_name;
};

TEST(ElementHelpers, ConstructEmptyStringsInRawMemory) {
    RawElements<std::string> elements(0xFF);
    container_construct(elements.get(), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(elements.get()[i], "");
        elements.get()[i] = "long enough to be stored outside of the string object itself";
    }
    container_destruct(elements.get(), 3);
}

TEST(ElementHelpers, ConstructNullPointersInRawMemory) {
    RawElements<void*> elements(0xFF);
    container_construct(elements.get(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(elements.get()[i], nullptr);
}

TEST(ElementHelpers, ConstructExactlyTheGivenNumberOfElements) {
    RawElements<void*> elements(0xFF);
    container_construct(elements.get() + 1, 2);
    for (std::size_t i = 0; i < 4 * sizeof(void*); ++i) {
        const bool inside = i >= sizeof(void*) && i < 3 * sizeof(void*);
        EXPECT_EQ(elements.byte(i), inside ? 0 : 0xFF) << "byte " << i;
    }
}

TEST(ElementHelpers, DestructEachElementOnceAndInOrder) {
    std::string ends;
    RawElements<Mortal> elements(0);
    for (int i = 0; i < 4; ++i)
        new (elements.get() + i) Mortal{&ends, static_cast<char>('a' + i)};
    container_destruct(elements.get(), 3);
    EXPECT_EQ(ends, "abc");
}

TEST(ElementHelpers, DoNotDeleteWhatPointersPointTo) {
    std::string ends;
    Mortal mortal{&ends, 'x'};
    Mortal* pointers[] = {&mortal, &mortal};
    container_destruct(pointers, 2);
    EXPECT_EQ(ends, "");
    EXPECT_EQ(pointers[0], &mortal);
}

TEST(ElementHelpers, DoNothingWithNoElements) {
    std::string* noStrings = nullptr;
    void** noPointers = nullptr;
    container_construct(noStrings, 0);
    container_construct(noPointers, 0);
    container_destruct(noStrings, 0);
    container_destruct(noPointers, 0);

    RawElements<void*> elements(0xFF);
    container_construct(elements.get(), 0);
    EXPECT_EQ(elements.byte(0), 0xFF);
}

TEST(ElementHelpers, CompareStringsByLengthAndBytes) {
    const struct {
        std::string one;
        std::string other;
        bool equal;
    } rows[] = {
        {"abc", "abc", true},
        {"", "", true},
        {"abc", "abd", false},
        {"abc", "Abc", false},
        {"abc", "ab", false},
        {"ab", "abc", false},
        {"", "a", false},
        {"\xE9", "\xE9", true},
        {"\xE9", "\xE8", false},
        {std::string("a\0b", 3), std::string("a\0b", 3), true},
        {std::string("a\0b", 3), std::string("a\0c", 3), false},
        {std::string("a\0", 2), "a", false},
        {std::string("\0", 1), "", false},
    };
    for (const auto& row : rows) {
        const std::string one = row.one;
        EXPECT_EQ(container_compare(&one, &row.other), row.equal) << row.one << ", " << row.other;
    }
}

TEST(ElementHelpersDeathTest, AbortIfTheElementsAreNull) {
    std::string* noStrings = nullptr;
    void** noPointers = nullptr;
    const std::string source = ": QKSTL/QKHashMap\\.h:[0-9]+: ";
    const std::string assertion =
        ".*: Assertion `nCount == 0 \\|\\| __null != pElements' failed\\.";
    EXPECT_DEATH(container_construct(noStrings, 1), source + ".*container_construct" + assertion);
    EXPECT_DEATH(container_construct(noPointers, 1), source + ".*container_construct" + assertion);
    EXPECT_DEATH(container_destruct(noStrings, 1), source + ".*container_destruct" + assertion);
    EXPECT_DEATH(container_destruct(noPointers, 1), source + ".*container_destruct" + assertion);
}

TEST(ElementHelpersDeathTest, AbortIfAComparedStringIsNull) {
    const std::string text = "a";
    const std::string* nothing = nullptr;
    const std::string source = ": QKSTL/QKHashMap\\.h:[0-9]+: .*container_compare.*: ";
    EXPECT_DEATH(container_compare(nothing, &text),
                 source + "Assertion `__null != pElement1' failed\\.");
    EXPECT_DEATH(container_compare(&text, nothing),
                 source + "Assertion `__null != pElement2' failed\\.");
    EXPECT_DEATH(container_compare(nothing, nothing),
                 source + "Assertion `__null != pElement1' failed\\.");
}

} // namespace
