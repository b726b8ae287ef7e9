// Runs a fuzzer on the inputs in the tree, each as a test: its seeds and its earlier findings.
#include "fuzz.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Returns whether an input is small enough to be tried truncated at every byte.
bool isSmall(const std::string& input) {
    return input.size() <= 1024 && std::count(input.begin(), input.end(), '\1') < 32;
}

// The program is called replay_NAME.
std::string fuzzerName() {
    const std::string prefix = "replay_", program = program_invocation_short_name;
    return program.substr(prefix.size());
}

std::vector<fs::path> inputsIn(const char* kind) {
    const fs::path folder = fs::path(FUZZ_FOLDER) / kind / fuzzerName();
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

// A violated contract aborts the program, after the name of the running test.
class Replay : public testing::Test {
public:
    explicit Replay(fs::path path) : m_path(std::move(path)) {}

    void TestBody() override {
        const std::string input = contentOf(m_path);
        ASSERT_FALSE(input.empty()) << m_path << " cannot be read";
        run(input);
        if (isSmall(input))
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

TEST(Seeds, Exist) {
    EXPECT_FALSE(inputsIn("seeds").empty());
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    registerInputs("seeds");
    registerInputs("findings");
    return RUN_ALL_TESTS();
}
