#include "model/compact_text.h"

#include <cstdint>
#include <cstring>

namespace phone {

CompactText::CompactText(std::string_view text) {
    if (!text.empty()) {
        const auto size = static_cast<std::uint32_t>(text.size());
        m_bytes.reset(new char[sizeof size + text.size()]);
        std::memcpy(m_bytes.get(), &size, sizeof size);
        std::memcpy(m_bytes.get() + sizeof size, text.data(), text.size());
    }
}

CompactText::operator std::string_view() const {
    if (!m_bytes) {
        return {};
    }
    std::uint32_t size = 0;
    std::memcpy(&size, m_bytes.get(), sizeof size);
    return {m_bytes.get() + sizeof size, size};
}

} // namespace phone
