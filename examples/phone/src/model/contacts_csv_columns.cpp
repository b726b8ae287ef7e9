#include "model/contacts_csv_columns.h"

#include "model/contact_search.h"
#include "model/folded_text.h"

#include <algorithm>

namespace phone {
namespace {

// What spreadsheets, mail programs and telephones call the fields, folded and without anything but
// letters. In the order of kContactFields.
const std::vector<std::u32string_view> kTitles[] = {
    {U"name", U"fullname", U"displayname", U"contact", U"contactname", U"vollstandigername",
     U"anzeigename", U"kontakt", U"姓名", U"名称", U"名字", U"全名", U"联系人"},
    {U"number",
     U"phone",
     U"phonenumber",
     U"telephone",
     U"telephonenumber",
     U"businessphone",
     U"work",
     U"workphone",
     U"office",
     U"officephone",
     U"tel",
     U"extension",
     U"nummer",
     U"telefon",
     U"telefonnummer",
     U"rufnummer",
     U"geschaftlich",
     U"telefongeschaftlich",
     U"buro",
     U"durchwahl",
     U"nebenstelle",
     U"号码",
     U"电话",
     U"电话号码",
     U"办公",
     U"办公电话",
     U"单位电话",
     U"公司电话",
     U"工作电话",
     U"商务电话",
     U"分机"},
    {U"mobile", U"mobilephone", U"mobilenumber", U"cell", U"cellphone", U"mobil", U"mobiltelefon",
     U"mobilnummer", U"handy", U"handynummer", U"手机", U"手机号", U"手机号码", U"移动电话"},
    {U"home", U"homephone", U"private", U"privatephone", U"privat", U"privattelefon",
     U"telefonprivat", U"家庭", U"家庭电话", U"住宅", U"住宅电话", U"宅电"},
};
static_assert(std::size(kTitles) == std::size(kContactFields));

constexpr std::size_t kRecordsForTitles = 20;

std::u32string lettersIn(const std::string& title) {
    std::u32string letters;
    fold(title, Umlauts::oneLetter, letters);
    const auto isNoLetter = [](char32_t character) {
        return character < 0x80 && !(character >= U'a' && character <= U'z');
    };
    letters.erase(std::remove_if(letters.begin(), letters.end(), isNoLetter), letters.end());
    return letters;
}

// Returns the first column with one of these titles.
std::size_t columnOf(const std::vector<std::u32string_view>& titles, const CsvRecord& header) {
    for (std::size_t column = 0; column < header.fields.size(); ++column) {
        const std::u32string letters = lettersIn(header.fields[column]);
        if (std::find(titles.begin(), titles.end(), letters) != titles.end()) {
            return column;
        }
    }
    return kNoColumn;
}

// Returns the first column that is not in use yet.
std::size_t freeColumn(const CsvColumns& columns, std::size_t count) {
    std::size_t column = 0;
    while (std::find(columns.begin(), columns.end(), column) != columns.end()) {
        ++column;
    }
    return column < count ? column : kNoColumn;
}

void readHeader(const CsvRecord& record, CsvLayout& layout) {
    CsvColumns columns;
    std::transform(std::begin(kTitles), std::end(kTitles), columns.begin(),
                   [&](const auto& titles) { return columnOf(titles, record); });
    const auto isNone = [](std::size_t column) { return column == kNoColumn; };
    if (!record.wellFormed || std::all_of(columns.begin(), columns.end(), isNone) ||
        std::any_of(record.fields.begin(), record.fields.end(), looksLikeNumber)) {
        return;
    }
    if (isNone(columns[0])) {
        columns[0] = freeColumn(columns, record.fields.size());
    }
    if (std::all_of(columns.begin() + 1, columns.end(), isNone)) {
        columns[1] = freeColumn(columns, record.fields.size());
    }
    layout.hasHeader = true;
    layout.columns = columns;
}

} // namespace

CsvLayout csvLayout(std::string_view text) {
    CsvLayout layout;
    layout.delimiter = csvDelimiter(text);
    CsvReader reader(text, layout.delimiter);
    for (std::size_t i = 0; i < kRecordsForTitles; ++i) {
        std::optional<CsvRecord> record = reader.next();
        if (!record) {
            break;
        }
        if (i == 0) {
            readHeader(*record, layout);
        }
        if (record->wellFormed && record->fields.size() > layout.titles.size()) {
            layout.titles = std::move(record->fields);
        }
    }
    return layout;
}

std::string fieldOf(const CsvRecord& record, std::size_t column) {
    return column < record.fields.size() ? record.fields[column] : std::string();
}

} // namespace phone
