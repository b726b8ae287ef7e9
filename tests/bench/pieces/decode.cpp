// Decodes what a client sent, looks one name up and frees the list; compared with a decoder that
// overwrites a copy of the text on the caller's stack.
#include "pieces.h"

#include "body.h"
#include "cgi.h"
#include "in_place.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

using namespace pieces;

constexpr std::size_t kMaxText = 4096;

struct Text {
    std::string text;
    std::string wanted; // the name that is looked up, in the middle of the text
};

std::string fieldName(long number) {
    return "field" + std::to_string(number);
}

Text query(long count) {
    std::string text;
    for (long i = 0; i < count; ++i)
        text += (i > 0 ? "&" : "") + fieldName(i) + "=value+%3d" + std::to_string(i);
    return {text, fieldName(count / 2)};
}

Text cookie(long count) {
    std::string text;
    for (long i = 0; i < count; ++i)
        text += (i > 0 ? "; " : "") + fieldName(i) + "=7ffd3a1719320055d0" + std::to_string(i);
    return {text, fieldName(count / 2)};
}

using Decode = CGI_varlist* (*)(CGI_varlist*, const char*);

void lookUpOurs(Decode decode, const Text& source) {
    CGI_varlist* list = decode(nullptr, source.text.c_str());
    benchmark::DoNotOptimize(CGI_lookup(list, source.wanted.c_str()));
    CGI_free_varlist(list);
}

using DecodeInPlace = InPlacePairs (*)(char*);

void lookUpInPlace(DecodeInPlace decode, const Text& source) {
    std::array<char, kMaxText> copy;
    std::memcpy(copy.data(), source.text.c_str(), source.text.size() + 1);
    const InPlacePairs pairs = decode(copy.data());
    benchmark::DoNotOptimize(pairs.find(source.wanted.c_str()));
}

// Ends the program if the decoders differ: comparing their times would be meaningless.
void checkThatBothAgree(Decode ours, DecodeInPlace inPlace, const Text& source) {
    std::string text = source.text;
    const InPlacePairs pairs = inPlace(text.data());
    CGI_varlist* list = ours(nullptr, source.text.c_str());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const char* value = CGI_lookup(list, pairs.name(i));
        if (value == nullptr || std::strcmp(value, pairs.value(i)) != 0) {
            std::fprintf(stderr, "pieces: the decoders differ about %s\n", pairs.name(i));
            std::abort();
        }
    }
    CGI_free_varlist(list);
}

void addBoth(const std::string& operation, long size, const Text& source, Decode ours,
             DecodeInPlace inPlace) {
    checkThatBothAgree(ours, inPlace, source);
    add(operation, size, "ours", [=] { lookUpOurs(ours, source); });
    add(operation, size, "in place", [=] { lookUpInPlace(inPlace, source); });
}

void addForm(long count) {
    const auto form = std::make_shared<const Text>(query(count));
    const auto body = std::make_shared<Body>(form->text);
    add("decode/form", count, "ours", [form, body] {
        CGI_varlist* list = CGI_get_post(nullptr, "application/x-www-form-urlencoded",
                                         static_cast<int>(form->text.size()), body->stream());
        benchmark::DoNotOptimize(CGI_lookup(list, form->wanted.c_str()));
        CGI_free_varlist(list);
    });
}

} // namespace

void pieces::addDecode() {
    for (const long count : {1, 2, 5, 10, 50, 100})
        addBoth("decode/query", count, query(count), CGI_decode_query, InPlacePairs::ofQuery);
    addBoth("decode/cookie", 5, cookie(5), CGI_get_cookie, InPlacePairs::ofCookie);

    for (const long count : {1, 10, 100, 1000})
        addForm(count);
}
