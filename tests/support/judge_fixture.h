// Judges texts as if they were items of an archive.
#ifndef QUENDIL_TESTS_JUDGE_FIXTURE_H
#define QUENDIL_TESTS_JUDGE_FIXTURE_H

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "view/IGViewDefinition.h"
#include "view/IGViewJudge.h"
#include "view/IGViewLines.h"
#include "view/IGViewResult.h"
#include "view/IGViewTable.h"

struct TestItem {
    std::string name;
    std::string text;
    bool cut = false;
    bool stopped = false;
};

// 2026/11/23 16:25:38, the start of the run in every test.
inline constexpr std::int64_t START = 1795451138;

inline Result judged(const Definitions& definitions, const std::vector<TestItem>& items,
                     std::int64_t start = START) {
    Judge judge(definitions);
    Result result;
    result.run.start_time = start;
    for (const TestItem& item : items) {
        const auto number = static_cast<std::uint32_t>(result.items.size());
        const bool is_read = judge.begin(number, item.name);
        LineSplitter lines;
        const auto take = [&](std::string_view line) {
            if (is_read) {
                judge.line(line);
            }
        };
        lines.add(item.text, take);
        lines.finish(take);
        result.items.emplace_back();
        result.items.back().name = item.name;
        result.items.back().cut = item.cut;
        result.items.back().stopped = item.stopped;
    }
    judge.finish(result);
    return result;
}

inline Result judgedBy(const std::string& text, const std::vector<TestItem>& items,
                       std::int64_t start = START) {
    Definitions definitions;
    std::string why;
    EXPECT_TRUE(definitions.add(text, why)) << why;
    return judged(definitions, items, start);
}

// The lines of the finding's places: "item:line text".
inline std::vector<std::string> placesOf(const Finding& finding, const Result& result) {
    std::vector<std::string> texts;
    for (const Place& place : finding.places) {
        texts.push_back(result.items[place.item].name + ':' + std::to_string(place.line) + ' ' +
                        place.text);
    }
    return texts;
}

// --- the built-in definitions and the files of their tests ---

namespace fs = std::filesystem;

inline const Definitions& builtIn() {
    static Definitions definitions;
    if (definitions.table().rules.empty()) {
        std::string why;
        EXPECT_TRUE(definitions.add(builtInDefinitions(), why)) << why;
    }
    return definitions;
}

inline std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<TestItem> itemsBelow(const fs::path& directory) {
    std::vector<TestItem> items;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) {
            items.push_back(
                {fs::relative(entry.path(), directory).string(), contentOf(entry.path())});
        }
    }
    std::sort(items.begin(), items.end(),
              [](const TestItem& one, const TestItem& other) { return one.name < other.name; });
    EXPECT_FALSE(items.empty()) << directory;
    return items;
}

// Every definition has a directory, and every directory a definition.
inline void expectDirectories(const fs::path& parent, const std::vector<std::string>& names) {
    std::set<std::string> directories;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent)) {
        directories.insert(entry.path().filename().string());
    }
    EXPECT_EQ(directories, std::set<std::string>(names.begin(), names.end()));
}

inline std::string nameOfParameter(const testing::TestParamInfo<std::string>& tested) {
    std::string name = tested.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

#endif
