#include "template_pages.h"

#include "temporary_folder.h"

#include <kit/testing/memory_stream.h>

#include <fcgiapp.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using namespace pieces;

// Longer than the time for which our cache does not trust a new file.
constexpr std::chrono::seconds kSettleTime{4};

const std::vector<std::string>& variableNames() {
    static const auto names = [] {
        std::vector<std::string> made;
        for (int i = 0; i < kVariables; ++i)
            made.push_back("SETTING_" + std::to_string(i));
        return made;
    }();
    return names;
}

const std::vector<std::string>& cellNames() {
    static const std::vector<std::string> names = {"NUMBER", "NAME",  "OFFICE",
                                                   "MOBILE", "GROUP", "NOTE"};
    return names;
}

struct Tags {
    std::string variableBegin;
    std::string variableEnd;
    std::string loopBegin;
    std::string loopEnd;

    std::string variable(const std::string& name) const {
        return variableBegin + name + variableEnd;
    }
};

const Tags kOurTags = {"<TMPL_VAR name=\"", "\">", "<TMPL_LOOP name=\"ROWS\">", "</TMPL_LOOP>"};
const Tags kTheirTags = {"{{", ":html_escape}}", "{{#ROWS}}", "{{/ROWS}}"};

std::string templateText(const Tags& tags) {
    std::string text = "<!DOCTYPE html>\n<html lang=\"en\">\n<head><title>Contacts</title></head>\n"
                       "<body>\n<form method=\"post\" action=\"/servlet?p=contacts\">\n";
    for (const std::string& name : variableNames())
        text += "<label>" + name + " <input name=\"" + name + "\" value=\"" + tags.variable(name) +
                "\"></label>\n";
    text += "</form>\n<table>\n" + tags.loopBegin;
    text += "<tr class=\"contact\">";
    for (const std::string& name : cellNames())
        text += "<td>" + tags.variable(name) + "</td>";
    return text + "</tr>\n" + tags.loopEnd + "</table>\n</body>\n</html>\n";
}

class TemplateFiles {
public:
    TemplateFiles() {
        m_folder.write("ours.html", templateText(kOurTags));
        m_folder.write("theirs.html", templateText(kTheirTags));
        std::this_thread::sleep_for(kSettleTime);
    }

    const std::string ours() const { return m_folder.path("ours.html"); }
    const std::string theirs() const { return m_folder.path("theirs.html"); }

private:
    TemporaryFolder m_folder;
};

const TemplateFiles& files() {
    static const TemplateFiles instance;
    return instance;
}

class StreamEmitter final : public ctemplate::ExpandEmitter {
public:
    explicit StreamEmitter(FCGX_Stream* out) : m_out(out) {}

    void Emit(char byte) override { FCGX_PutChar(byte, m_out); }
    void Emit(const std::string& text) override { Emit(text.data(), text.size()); }
    void Emit(const char* text) override { FCGX_PutS(text, m_out); }
    void Emit(const char* text, std::size_t size) override {
        FCGX_PutStr(text, static_cast<int>(size), m_out);
    }

private:
    FCGX_Stream* m_out;
};

} // namespace

pieces::PageContent::PageContent(long rowCount) {
    for (int i = 0; i < kVariables; ++i)
        variables.push_back("setting \"" + std::to_string(i) + "\" & more");
    for (long i = 0; i < rowCount; ++i) {
        const std::string number = std::to_string(i);
        rows.push_back({number, "O'Neill, Person " + number, "+49 30 5550" + number,
                        "+49 170 5550" + number, "Sales & Service", "calls <after> five"});
    }
}

const std::string& pieces::ourTemplateText() {
    static const std::string text = templateText(kOurTags);
    return text;
}

const std::string& pieces::ourTemplateFile() {
    static const std::string path = files().ours();
    return path;
}

const std::string& pieces::theirTemplateFile() {
    static const std::string path = files().theirs();
    return path;
}

pieces::OurVariables pieces::fillOurs(const PageContent& content) {
    const char* const end = nullptr;
    TMPL_varlist* list = nullptr;
    for (std::size_t i = 0; i < content.variables.size(); ++i)
        list = TMPL_add_var(list, variableNames()[i].c_str(), content.variables[i].c_str(), end);
    TMPL_loop* loop = nullptr;
    const auto& names = cellNames();
    for (const auto& cells : content.rows)
        loop = TMPL_add_row(loop, TMPL_add_var(nullptr, names[0].c_str(), cells[0].c_str(),
                                               names[1].c_str(), cells[1].c_str(), names[2].c_str(),
                                               cells[2].c_str(), names[3].c_str(), cells[3].c_str(),
                                               names[4].c_str(), cells[4].c_str(), names[5].c_str(),
                                               cells[5].c_str(), end));
    return OurVariables(TMPL_add_loop(list, "ROWS", loop));
}

pieces::TheirVariables pieces::fillTheirs(const PageContent& content) {
    auto dictionary = std::make_unique<ctemplate::TemplateDictionary>("page");
    for (std::size_t i = 0; i < content.variables.size(); ++i)
        dictionary->SetValue(variableNames()[i], content.variables[i]);
    const auto& names = cellNames();
    for (const auto& cells : content.rows) {
        ctemplate::TemplateDictionary* row = dictionary->AddSectionDictionary("ROWS");
        for (std::size_t i = 0; i < cells.size(); ++i)
            row->SetValue(names[i], cells[i]);
    }
    return dictionary;
}

void pieces::renderOurs(const TMPL_varlist* variables, FCGX_Stream* out) {
    TMPL_web_write(ourTemplateFile().c_str(), nullptr, nullptr, variables, out, stderr);
}

void pieces::renderTheirs(const ctemplate::TemplateDictionary& variables, FCGX_Stream* out) {
    StreamEmitter emitter(out);
    ctemplate::ExpandTemplate(theirTemplateFile(), ctemplate::DO_NOT_STRIP, &variables, &emitter);
}

void pieces::checkThatPagesAreEqual() {
    const PageContent content(50);
    kit::testing::MemoryOutput ours;
    renderOurs(fillOurs(content).get(), ours.stream());
    kit::testing::MemoryOutput theirs;
    renderTheirs(*fillTheirs(content), theirs.stream());
    if (!ours.text().empty() && ours.text() == theirs.text())
        return;
    std::fprintf(stderr, "pieces: the pages differ:\n%s\n--- and\n%s\n", ours.text().c_str(),
                 theirs.text().c_str());
    std::abort();
}
