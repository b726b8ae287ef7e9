#include "kit_tasks.h"

#include "kit/json_builder.h"

#include <rapidjson/reader.h>

namespace {

// Passes RapidJSON's events on to the kit's builder.
class Builder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Builder> {
public:
    bool Null() { return m_builder.null(); }
    bool Bool(bool value) { return m_builder.boolean(value); }
    bool Int(int value) { return m_builder.number_integer(value); }
    bool Uint(unsigned value) { return m_builder.number_unsigned(value); }
    bool Int64(std::int64_t value) { return m_builder.number_integer(value); }
    bool Uint64(std::uint64_t value) { return m_builder.number_unsigned(value); }
    bool Double(double value) { return m_builder.number_float(value, ""); }
    bool String(const char* text, rapidjson::SizeType size, bool) {
        std::string copy(text, size);
        return m_builder.string(copy);
    }
    bool Key(const char* text, rapidjson::SizeType size, bool) {
        std::string copy(text, size);
        return m_builder.key(copy);
    }
    bool StartArray() { return m_builder.start_array(0); }
    bool EndArray(rapidjson::SizeType) { return m_builder.end_array(); }
    bool StartObject() { return m_builder.start_object(0); }
    bool EndObject(rapidjson::SizeType) { return m_builder.end_object(); }

    kit::Json takeRoot() { return m_builder.takeRoot(); }

private:
    kit::internal::JsonBuilder m_builder{kMaxDepth};
};

} // namespace

long readTask(const char* text, std::size_t size) {
    Builder builder;
    rapidjson::MemoryStream stream(text, size);
    rapidjson::Reader reader;
    constexpr unsigned kFlags = rapidjson::kParseIterativeFlag |
                                rapidjson::kParseValidateEncodingFlag |
                                rapidjson::kParseFullPrecisionFlag;
    return reader.Parse<kFlags>(stream, builder) ? priorityOf(builder.takeRoot()) : -1;
}
