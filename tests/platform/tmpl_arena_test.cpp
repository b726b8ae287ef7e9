#include "arena.h"
#include "tmpl_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace {

using tmpl::Arena;

// A piece of an arena, filled with one character.
struct Piece {
    char* begin;
    std::size_t size;
    char content;

    bool isIntact() const {
        return std::all_of(begin, begin + size, [this](char byte) { return byte == content; });
    }
};

Piece take(Arena& arena, std::size_t size, char content) {
    auto* const begin = static_cast<char*>(arena.take(size));
    std::memset(begin, content, size);
    return {begin, size, content};
}

TMPL_varlist* pageOf(int rows, const std::string& value) {
    TMPL_loop* loop = nullptr;
    for (int i = 0; i < rows; ++i)
        loop = TMPL_add_row(loop, TMPL_add_var(nullptr, "x", value.c_str(), kEnd));
    return TMPL_add_loop(nullptr, "rows", loop);
}

std::string rendered(TMPL_varlist* page) {
    return renderText("<TMPL_LOOP name=\"rows\"><TMPL_VAR name=\"x\"></TMPL_LOOP>", page).page;
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

} // namespace

TEST(Arena, ReturnsAlignedPiecesThatDoNotOverlap) {
    Arena first;
    Arena second;
    std::vector<Piece> pieces;
    for (std::size_t size = 0; size < 3 * Arena::kMaxShared; size += 7) {
        pieces.push_back(take(first, size, static_cast<char>(size)));
        pieces.push_back(take(second, size + 1, static_cast<char>(size + 1)));
    }
    for (const Piece& piece : pieces) {
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(piece.begin) % alignof(void*));
        EXPECT_TRUE(piece.isIntact()) << piece.size;
    }
}

TEST(Arena, LeavesThePiecesOfOthersWhenItIsDestroyed) {
    Arena kept;
    std::vector<Piece> pieces;
    for (int i = 0; i < 1000; ++i) {
        Arena destroyed;
        take(destroyed, 100, 'd');
        pieces.push_back(take(kept, 10, static_cast<char>(i)));
        take(destroyed, Arena::kMaxShared + 1, 'd');
    }
    EXPECT_TRUE(
        std::all_of(pieces.begin(), pieces.end(), [](auto& piece) { return piece.isIntact(); }));
}

TEST(Arena, FillsABlockAgainThatNobodyUses) {
    const void* before = nullptr;
    for (int i = 0; i < 1000; ++i) {
        Arena arena;
        const void* const piece = arena.take(100);
        EXPECT_TRUE(before == nullptr || before == piece);
        before = piece;
    }
}

TEST(Arena, KeepsItsPiecesWhenItIsMoved) {
    Arena from;
    const Piece piece = take(from, 100, 'p');
    Arena to = std::move(from);
    take(from, 100, 'f');
    take(to, 100, 't');
    EXPECT_TRUE(piece.isIntact());
}

TEST(Arena, OutlivesTheThreadThatFilledIt) {
    Arena arena;
    Piece piece{};
    std::thread([&] { piece = take(arena, 100, 'p'); }).join();
    const Piece another = take(arena, 100, 'a');
    EXPECT_TRUE(piece.isIntact() && another.isIntact());
}

TEST(Lists, MayBeFilledAndFreedByOtherThreads) {
    constexpr int kRounds = 200;
    constexpr int kRows = 20;
    // Each thread passes its lists on to the next, which adds to them, renders and frees them.
    std::vector<std::promise<TMPL_varlist*>> lists(3 * kRounds);
    const auto work = [&](std::size_t thread) {
        for (std::size_t i = 0; i < kRounds; ++i) {
            lists[thread * kRounds + i].set_value(pageOf(kRows, std::to_string(thread)));
            const std::size_t other = (thread + 1) % 3;
            Variables list(lists[other * kRounds + i].get_future().get());
            TMPL_add_var(list.get(), "y", std::string(i, 'y').c_str(), kEnd);
            EXPECT_EQ(repeated(std::to_string(other), kRows), rendered(list.get()));
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    work(2);
    first.join();
    second.join();
}
