#include "error_texts.h"
#include "model/contacts_csv.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>
#include <set>

using namespace phone;

namespace {

std::string numbersIn(const Contact& contact) {
    std::string text = contact.number.str();
    text += contact.mobile.empty() ? "" : " mobile " + contact.mobile.str();
    text += contact.home.empty() ? "" : " home " + contact.home.str();
    return text;
}

// Returns the plan as lines of text.
std::string textOf(const ImportPlan& plan) {
    std::string text;
    for (const Contact& contact : plan.added) {
        text += "+ " + contact.name.str() + ": " + numbersIn(contact) + "\n";
    }
    for (const ImportPlan::Change& change : plan.changed) {
        text += "* " + change.now.name.str() + ": " + numbersIn(change.old) + " -> " +
                numbersIn(change.now) + "\n";
    }
    if (plan.unchanged != 0) {
        text += "= " + std::to_string(plan.unchanged) + "\n";
    }
    for (const ImportPlan::Refused& refused : plan.refused) {
        text += std::to_string(refused.line) + ": " + ::textOf(Errors{refused.error}) + "\n";
    }
    return text;
}

std::string planOf(std::string_view text) {
    return textOf(planImport(text, Directory()));
}

} // namespace

TEST(CsvImport, ReadsOneContactPerLine) {
    const struct {
        std::string text;
        const char* plan;
    } cases[] = {
        {"", ""},
        {"\r\n \n\r\t\r\n", ""},
        {"Ann,1", "+ Ann: 1\n"},
        {"Ann,1\r\nBen,2\nCem,3\rDan,4", "+ Ann: 1\n+ Ben: 2\n+ Cem: 3\n+ Dan: 4\n"},
        {"\xEF\xBB\xBF"
         "Ann,1",
         "+ Ann: 1\n"},
        {"name,number\nAnn,1", "+ Ann: 1\n"},
        {"\xEF\xBB\xBF\"Name\" , NUMBER\r\nAnn,1", "+ Ann: 1\n"},
        {"Ann,1\nname,number", "+ Ann: 1\n2: number: badCharacters\n"},
        {"name,number,Office\nAnn,1", "+ Ann: 1\n"},
        {"name,number,\"x\nAnn,1", "+ Ann: 1\n1: line: badCharacters\n"},
        {" Ann , 1 ", "+ Ann: 1\n"},
        {"Ann,1,Office,", "+ Ann: 1\n"},
        {"Name;Mobil;Privat\nAnn;2;3", "+ Ann:  mobile 2 home 3\n"},
        {"Ann\t1\nDoe, Jane\t2", "+ Ann: 1\n+ Doe, Jane: 2\n"},
        {"\"Doe, Jane\",\"1\"", "+ Doe, Jane: 1\n"},
        {"\"Jane \"\"JD\"\" Doe\",1", "+ Jane \"JD\" Doe: 1\n"},
        {"\"Ann\nSmith\",1\nBen,2", "+ Ann Smith: 1\n+ Ben: 2\n"},
        {"\"Ann\r\nSmith\",1\n,", "+ Ann Smith: 1\n3: name: required\n"},
        {" \"Ann\" , \"1\" \n", "+ Ann: 1\n"},
        {"Ann", "1: number: required\n"},
        {",1", "1: name: required\n"},
        {"\"\",1", "1: name: required\n"},
        {"Ann,x\nBen,2", "+ Ben: 2\n1: number: badCharacters\n"},
        {"A\tb,1", "1: number: badCharacters\n"},
        {"A\x01b,1", "1: name: badCharacters\n"},
        {std::string("A\0b,1", 5), "1: name: badCharacters\n"},
        {"Ann,1\n\nAnn,2\nBen,3", "+ Ann: 1\n+ Ben: 3\n3: name: duplicate\n"},
        {"\xFF,1\nBen,2", "+ Ben: 2\n1: line: notUtf8\n"},
        {"Ann,1,\xFF\nBen,2", "+ Ben: 2\n1: line: notUtf8\n"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(planOf(test.text), test.plan) << test.text;
    }
}

TEST(CsvImport, RejectsOnlyTheLineWithUnbalancedQuotes) {
    const std::string rest = "\nBen,2\n\"Cem\",3";
    for (const char* line :
         {"\"Ann,1", "\"Ann\"x,1", "An\"n,1", "Ann,\"1", "Ann,1,\"", "\"", "\"\"\""}) {
        // A quote in a later line may close the open one; then both lines are rejected.
        EXPECT_EQ(planOf(line + std::string("\nBen,2")), "+ Ben: 2\n1: line: badCharacters\n")
            << line;
    }
    EXPECT_EQ(planOf("Ann\"x,1" + rest), "+ Ben: 2\n+ Cem: 3\n1: line: badCharacters\n");
    const std::string many(5000, 'x');
    EXPECT_EQ(planOf("\"Ann,1\n" + many + "\nBen,2\n\"Cem\",3"),
              "+ Ben: 2\n+ Cem: 3\n1: line: badCharacters\n2: name: tooLong 64\n");
}

TEST(CsvImport, CountsNewChangedAndUnchangedContacts) {
    Directory directory;
    directory.put({"Ann", "1"});
    directory.put({"Ben", "2"});
    directory.put({"Zoe", "9"});
    const ImportPlan plan = planImport("Ann,1\nBen,22\nCem,3", directory);
    EXPECT_EQ(textOf(plan), "+ Cem: 3\n* Ben: 2 -> 22\n= 1\n");
    EXPECT_EQ(directory.find("Cem"), nullptr);

    EXPECT_EQ(textOf(applyImport(plan, directory)), "");
    EXPECT_EQ(directory.contacts().size(), 4u);
    EXPECT_EQ(directory.find("Ben")->number, "22");
    EXPECT_EQ(directory.find("Cem")->number, "3");
    EXPECT_EQ(directory.find("Zoe")->number, "9");
}

TEST(CsvImport, KeepsNumbersForWhichTheFileHasNoColumn) {
    Directory directory;
    directory.put({"Ann", "1", "2", "3"});
    directory.put({"Ben", "", "5"});
    EXPECT_EQ(textOf(planImport("name,home\nAnn,33\nBen,", directory)),
              "* Ann: 1 mobile 2 home 3 -> 1 mobile 2 home 33\n= 1\n");
    EXPECT_EQ(textOf(planImport("name,number,mobile\nAnn,1,\nBen,,", directory)),
              "* Ann: 1 mobile 2 home 3 -> 1 home 3\n3: number: required\n");
}

TEST(CsvImport, UsesTheColumnsThatAreGiven) {
    const CsvColumns columns{2, kNoColumn, 0, 40};
    const ImportPlan plan = planImport("1;x;Ann\n2;y;Ben\n;3;Cem\n", Directory(), columns);
    EXPECT_EQ(textOf(plan), "+ Ann:  mobile 1\n+ Ben:  mobile 2\n3: number: required\n");
    EXPECT_EQ(plan.columns, columns);
    EXPECT_EQ(plan.titles, (std::vector<std::string>{"1", "x", "Ann"}));
}

TEST(CsvImport, RejectsContactsBeyondTheLimit) {
    Directory directory;
    for (std::size_t i = 0; i + 1 < Directory::kMaxContacts; ++i) {
        directory.put({"Contact " + std::to_string(i), "1"});
    }
    const ImportPlan plan = planImport("Ann,1\nBen,2\nContact 1,5", directory);
    EXPECT_EQ(textOf(plan), "+ Ann: 1\n* Contact 1: 1 -> 5\n2: name: tooMany 2000\n");

    directory.put({"Meanwhile", "1"});
    EXPECT_EQ(textOf(applyImport(plan, directory)), "contacts: tooMany 2000");
    EXPECT_EQ(directory.find("Ann"), nullptr);
    EXPECT_EQ(directory.find("Contact 1")->number, "1");
}

TEST(CsvImport, RejectsAFileThatIsTooLarge) {
    std::string text = "Ann,1\n";
    text.resize(kMaxCsvBytes, '\n');
    EXPECT_EQ(planOf(text), "+ Ann: 1\n");
    text += '\n';
    const ImportPlan plan = planImport(text, Directory());
    EXPECT_TRUE(plan.tooLarge);
    EXPECT_EQ(textOf(plan), "");
}

TEST(CsvImport, ShowsTheBeginningOfTheFirstRejectedLines) {
    std::string text = "\xFF"
                       "Ann\x01,1\n\xC3\xA4" +
                       std::string(200, 'x') + ",1\n";
    for (int i = 0; i < 1000; ++i) {
        text += "x\n";
    }
    const ImportPlan plan = planImport(text, Directory());
    EXPECT_EQ(plan.refusedCount, 1002u);
    ASSERT_EQ(plan.refused.size(), ImportPlan::kMaxRefusedRows);
    EXPECT_EQ(plan.refused[0].text, "?Ann?,1");
    EXPECT_EQ(plan.refused[1].text, "\xC3\xA4" + std::string(58, 'x'));
    EXPECT_EQ(plan.refused[99].line, 100u);
}

TEST(CsvExport, RoundTrips) {
    Directory directory;
    for (const char* name : {"Ann", "Doe, Jane", "J \"JD\" D", "\"", "=1+1", "+Plus", "-Minus",
                             "@At", "'=x", "''=x", "'n Sync", "'", "\xE7\x8E\x8B\xE8\x8A\xB3"}) {
        directory.put({name, "+49 (30) 23125-000", "", "3"});
    }
    Directory again;
    const ImportPlan plan = planImport(contactsCsv(directory), again);
    EXPECT_EQ(plan.refusedCount, 0u);
    ASSERT_EQ(textOf(applyImport(plan, again)), "");
    EXPECT_EQ(contactsCsv(again), contactsCsv(directory));
    for (const Contact& contact : directory.contacts()) {
        EXPECT_NE(again.find(contact.name), nullptr) << contact.name;
    }
}

TEST(CsvExport, DefusesFormulasInNamesAndKeepsNumbers) {
    Directory directory;
    directory.put({"=HYPERLINK(\"x\")", "+49 1"});
    directory.put({"Ann", "1"});
    EXPECT_EQ(contactsCsv(directory), "name,number,mobile,home\r\n"
                                      "\"'=HYPERLINK(\"\"x\"\")\",+49 1,,\r\n"
                                      "Ann,1,,\r\n");
}

TEST(FactoryContacts, AreAThousandValidContacts) {
    const ImportPlan plan = planImport(textOfFile(FACTORY_CONTACTS), Directory());
    EXPECT_EQ(plan.added.size(), 1000u);
    EXPECT_EQ(plan.refusedCount, 0u);
    std::set<std::string> numbers;
    for (const Contact& contact : plan.added) {
        numbers.insert(contact.number.str());
    }
    EXPECT_EQ(numbers.size(), 1000u);
}
