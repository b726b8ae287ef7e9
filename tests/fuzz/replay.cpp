// Gives a fuzzer the inputs that are in the tree, each as a test: its seeds, and what it has found.
#include "fuzz.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Whether there is the time to cut an input everywhere.
bool isQuick(const std::string& input) {
    return input.size() <= 1024 && std::count(input.begin(), input.end(), '\1') < 32;
}

std::vector<fs::path> inputsIn(const char* kind) {
    const fs::path folder = fs::path(FUZZ_FOLDER) / kind / FUZZER;
    std::vector<fs::path> inputs;
    if (fs::exists(folder))
        inputs.assign(fs::directory_iterator(folder), fs::directory_iterator());
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void run(std::string_view input) {
    const auto bytes = std::make_unique<std::uint8_t[]>(input.size());
    std::copy(input.begin(), input.end(), bytes.get());
    LLVMFuzzerTestOneInput(bytes.get(), input.size());
}

// What does not hold ends the program, with the name of the test above it.
class Replay : public testing::Test {
public:
    explicit Replay(fs::path path) : m_path(std::move(path)) {}

    void TestBody() override {
        const std::string input = contentOf(m_path);
        ASSERT_FALSE(input.empty()) << m_path << " cannot be read";
        run(input);
        if (isQuick(input))
            for (std::size_t size = 0; size < input.size(); ++size)
                run(std::string_view(input).substr(0, size));
    }

private:
    const fs::path m_path;
};

void registerInputs(const char* kind) {
    for (const fs::path& path : inputsIn(kind))
        testing::RegisterTest(kind, path.filename().c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              [path]() -> testing::Test* { return new Replay(path); });
}

TEST(Inputs, AreThere) {
    EXPECT_FALSE(inputsIn("seeds").empty());
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    registerInputs("seeds");
    registerInputs("findings");
    return RUN_ALL_TESTS();
}
