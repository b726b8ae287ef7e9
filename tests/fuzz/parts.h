// Collects the parts of a multipart body as the parser reports them.
#ifndef PARTS_H
#define PARTS_H

#include "fuzz.h"
#include "multipart.h"

#include <vector>

namespace fuzz {

struct ReceivedPart {
    std::string name;
    std::optional<std::string> fileName;
    std::string data;
    bool isWhole = false;

    bool operator==(const ReceivedPart& other) const {
        return name == other.name && fileName == other.fileName && data == other.data &&
               isWhole == other.isWhole;
    }
};

class PartCollector final : public cgi::PartSink {
public:
    explicit PartCollector(std::vector<ReceivedPart>& parts) : m_parts(parts) {}

    bool beginPart(cgi::Part part) override {
        m_parts.push_back({part.name, part.fileName, "", false});
        return true;
    }
    bool partData(const char* data, std::size_t size) override {
        require(!m_parts.empty() && !m_parts.back().isWhole, "data is reported inside a part");
        m_parts.back().data.append(data, size);
        return true;
    }
    bool endPart() override {
        require(!m_parts.empty() && !m_parts.back().isWhole, "a part is ended once");
        return m_parts.back().isWhole = true;
    }

private:
    std::vector<ReceivedPart>& m_parts;
};

} // namespace fuzz

#endif
