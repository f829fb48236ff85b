// The documented examples of kestrine-sim print exactly the documented
// transcripts, and the documentation names every machine key the loader reads.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class DocsExample : public ::testing::TestWithParam<const char*> {};

TEST_P(DocsExample, SimPrintsTheDocumentedTranscript) {
    const std::string docs = std::string(KESTRINE_SOURCE_DIR) + "/docs/";
    const std::string name = GetParam();
    std::ifstream expectedFile(docs + name + ".jsonl");
    ASSERT_TRUE(expectedFile) << "docs/" << name << ".jsonl is missing";
    std::stringstream expected;
    expected << expectedFile.rdbuf();

    // A broken wait would make the simulator spin: give up after a while.
    const std::string command = "timeout 60 " + std::string(KESTRINE_SIM_PATH) + " " + docs + name + ".json";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    ASSERT_NE(pipe, nullptr);
    std::string actual;
    std::array<char, 4096> chunk{};
    for (std::size_t n; (n = fread(chunk.data(), 1, chunk.size(), pipe.get())) > 0;) actual.append(chunk.data(), n);
    ASSERT_EQ(pclose(pipe.release()), 0) << "kestrine-sim failed on the documented example";

    const auto want = SplitLines(expected.str());
    const auto got = SplitLines(actual);
    ASSERT_FALSE(want.empty());
    for (std::size_t i = 0; i < std::max(want.size(), got.size()); ++i) {
        ASSERT_LT(i, got.size()) << "the transcript ends early; expected: " << want[i];
        ASSERT_LT(i, want.size()) << "the transcript has an extra line: " << got[i];
        EXPECT_EQ(got[i], want[i]) << "line " << i + 1;
    }
}

INSTANTIATE_TEST_SUITE_P(Examples, DocsExample,
                         ::testing::Values("example-start", "example-stick", "example-quorra", "example-release",
                                           "example-close-wait", "example-key-release"));

std::string ReadSource(const std::string& path) {
    std::ifstream in(std::string(KESTRINE_SOURCE_DIR) + "/" + path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(SimDocs, EveryMachineKeyTheLoaderReadsIsDocumented) {
    const std::string doc = ReadSource("docs/kestrine-sim.md");
    const auto from = doc.find("### `machine`");
    const auto to = doc.find("### `steps[]`");
    ASSERT_NE(from, std::string::npos);
    ASSERT_NE(to, std::string::npos);
    const std::string table = doc.substr(from, to - from);

    // The keys the loaders read: Str(j, "key"), Num<T>(j, "key", ...),
    // Flag(j, "key", ...), Number(j, "key"), Array(j, "key"), j.contains("key").
    const std::regex read(R"re((?:Str|Num<[^>]*>|Flag|Number|Array)\(\w+, "(\w+)"|contains\("(\w+)"\))re");
    std::set<std::string> keys;
    for (const char* file : {"src/platform/fake/machine_json.cpp", "src/platform/fake/hardware_json.cpp",
                             "src/platform/fake/native.cpp"}) {
        const std::string source = ReadSource(file);
        ASSERT_FALSE(source.empty()) << file;
        for (std::sregex_iterator it(source.begin(), source.end(), read), end; it != end; ++it)
            keys.insert((*it)[1].matched ? (*it)[1].str() : (*it)[2].str());
    }
    EXPECT_GT(keys.size(), 40u);
    for (const auto& key : keys) {
        const std::regex named("[`.\"]" + key + "[`.\"\\[]");
        EXPECT_TRUE(std::regex_search(table, named)) << "docs/kestrine-sim.md does not name the machine key " << key;
    }
}

} // namespace
