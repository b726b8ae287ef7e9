#include "model/configuration.h"

#include "model/settings_xml.h"

namespace phone {

std::string configurationText(const Settings& settings) {
    XmlWriter writer;
    writeSettings(writer, settings);
    return writer.text();
}

Errors readConfiguration(std::string_view text, Settings& settings) {
    if (text.size() > kMaxConfigurationBytes) {
        return {{"config", ErrorCode::tooLarge, kMaxConfigurationBytes}};
    }
    pugi::xml_document document;
    Errors errors = parseXml(text, document);
    return errors.empty() ? readSettings(document.document_element(), settings) : errors;
}

Errors keepLocalCopy(State& state) {
    state.localCopy = configurationText(state.settings);
    return {};
}

Errors restoreLocalCopy(State& state) {
    if (state.localCopy.empty()) {
        return {{"config", ErrorCode::required, std::nullopt}};
    }
    return readConfiguration(state.localCopy, state.settings);
}

Errors removeLocalCopy(State& state) {
    state.localCopy.clear();
    return {};
}

} // namespace phone
