// Sends the events that docs/remote-events.md lists, and compares the answers.
#include "phone_test.h"

#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace {

using Row = std::vector<std::string>;

std::string withoutMarks(std::string_view text) {
    const auto begin = text.find_first_not_of(" `");
    return begin == text.npos
               ? ""
               : std::string(text.substr(begin, text.find_last_not_of(" `") + 1 - begin));
}

Row cellsOf(const std::string& line) {
    Row cells;
    for (std::size_t begin = 1; begin < line.size();) {
        const std::size_t end = line.find('|', begin);
        cells.push_back(line.substr(begin, end - begin));
        begin = end + 1;
    }
    return cells;
}

// Returns the rows of the table below a heading, without the two lines of its head.
std::vector<Row> tableBelow(const std::string& heading) {
    std::ifstream document(REMOTE_EVENTS);
    std::string line;
    while (line != "## " + heading) {
        if (!std::getline(document, line)) {
            throw std::runtime_error("no heading " + heading);
        }
    }
    std::vector<Row> rows;
    while (std::getline(document, line) && line.compare(0, 3, "## ") != 0) {
        if (line.compare(0, 1, "|") == 0) {
            rows.push_back(cellsOf(line));
        }
    }
    rows.erase(rows.begin(), rows.begin() + 2);
    return rows;
}

// Returns the words in backticks.
std::vector<std::string> namesIn(const std::string& cell) {
    std::vector<std::string> names;
    for (std::size_t mark = cell.find('`'); mark != cell.npos; mark = cell.find('`', mark + 1)) {
        const std::size_t end = cell.find('`', mark + 1);
        names.push_back(cell.substr(mark + 1, end - mark - 1));
        mark = end;
    }
    return names;
}

class RemoteEvents : public SignedInFixture {
protected:
    std::string display() {
        const std::string text = me.page("phone").text();
        const std::string before = "On the display ";
        const auto begin = text.find(before) + before.size();
        const std::string shown = text.substr(begin, text.find(" Line keys") - begin);
        // The buttons below the display.
        return shown.substr(0, std::min(shown.find(" Answer"), shown.find(" Hang up")));
    }
};

} // namespace

TEST_F(RemoteEvents, AreAnsweredWithTheListedStatus) {
    for (const Row& row : tableBelow("The events")) {
        restart();
        EXPECT_EQ(event(withoutMarks(row[1])).status, std::stoi(row[3])) << row[1];
    }
}

TEST_F(RemoteEvents, PressEachListedKey) {
    int keys = 0;
    for (const Row& row : tableBelow("Keys")) {
        for (const std::string& key : namesIn(row[0])) {
            ++keys;
            EXPECT_EQ(event("key=" + key).status, 200) << key;
        }
    }
    EXPECT_EQ(keys, 31);
}

TEST_F(RemoteEvents, CarryOutEachListedCommandWhereItIsPossible) {
    const std::map<std::string, std::string> before{
        {"answer", "command=ring"}, {"hangup", "number=1"}, {"hold", "number=1"}};
    for (const Row& row : tableBelow("Commands")) {
        for (const std::string& command : namesIn(row[0])) {
            restart();
            const auto needed = before.find(command);
            if (needed != before.end()) {
                EXPECT_EQ(event("command=" + command).status, 400) << command;
                event(needed->second);
            } else if (withoutMarks(row[1]) == "always") {
                event("number=1");
            }
            EXPECT_EQ(event("command=" + command).status, 200) << command;
        }
    }
}

TEST_F(RemoteEvents, LeadThroughTheListedCall) {
    const auto steps = tableBelow("A call, step by step");
    ASSERT_GT(steps.size(), 10U);
    for (const Row& step : steps) {
        const std::string query = withoutMarks(step[0]).substr(std::string("/servlet?").size());
        EXPECT_EQ(event(query).status, std::stoi(step[1])) << query;
        EXPECT_EQ(display(), withoutMarks(step[2])) << query;
    }
}

TEST_F(RemoteEvents, GetTheListedAnswers) {
    const std::string local = "127.0.0.1";
    const Request key = get("/servlet?key=1").from(local);
    const Request requests[] = {
        key,
        get("/servlet?key=NONSENSE").from(local),
        key.from("192.0.2.66"),
        key.header("Sec-Fetch-Site", "cross-site"),
        get("/servlet?number=<1>").from(local),
        key.header("Host", "attacker.example"),
    };
    const auto rows = tableBelow("Answers");
    ASSERT_EQ(rows.size(), std::size(requests));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto response = container->serve(requests[i]);
        EXPECT_EQ(response.status, std::stoi(rows[i][0])) << i;
        const std::string body = withoutMarks(rows[i][1]);
        EXPECT_EQ(response.body.substr(0, response.body.find('\n')), body);
    }
}

TEST_F(RemoteEvents, FollowTheRulesOfTheQuery) {
    EXPECT_EQ(event("key=5&x=1").body, "OK\n");
    EXPECT_EQ(event("x=1&key=5").status, 404);
    EXPECT_EQ(event("keyboard=1&p=audio").status, 303) << "the page asks for a sign-in";
    EXPECT_EQ(event("key=NONSENSE&key=5").status, 400);
    EXPECT_EQ(event("key=5&key=NONSENSE").status, 200);
    EXPECT_EQ(event("key=5&q=reboot").status, 200);
    EXPECT_EQ(notice(), "idle") << "no event restarts the phone";
}
