#include "check/IGCheckList.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "check/IGCheckInput.h"
#include "common/base/IGCmnList.h"
#include "companion/IGJson.h"
#include "companion/IGText.h"
#include "ini/IGIniTable.h"

using nlohmann::ordered_json;

namespace {

// A pattern file, and its PP_NAME.
using Pattern = std::pair<std::string, std::string>;
// The patterns of each group or target.
using Selections = std::map<std::string, std::set<Pattern>>;

struct Lists {
    Selections groups;
    Selections targets;
};

void addAll(Selections& selections, const IgCmnListHeader* values, const Pattern& pattern) {
    for (const char& value : walkStrings(values)) {
        selections[&value].insert(pattern);
    }
}

std::string firstOf(const IgCmnListHeader* values) {
    for (const char& value : walkStrings(values)) {
        return &value;
    }
    return "";
}

// A run skips a pattern with an error.
void addPattern(Lists& lists, const CheckedFile& file) {
    if (file.hasError()) {
        complain(file.name, "skipped: it has errors");
        return;
    }
    const Pattern pattern{nameOf(file.name), firstOf(file.pattern->name)};
    addAll(lists.groups, file.pattern->group, pattern);
    for (const PlacedBlock& block : file.blocks) {
        addAll(lists.targets, block.block->target, pattern);
    }
}

ordered_json jsonOf(const Selections& selections) {
    ordered_json list = ordered_json::array();
    for (const auto& [name, patterns] : selections) {
        ordered_json files = ordered_json::array();
        for (const auto& [file, title] : patterns) {
            files.push_back({{"file", file}, {"name", title}});
        }
        list.push_back({{"name", name}, {"patterns", files}});
    }
    return list;
}

// One row for each pattern of a group or target.
struct Row {
    const char* kind;
    std::string name;
    std::string file;
    std::string title;
};

std::vector<Row> rowsOf(const Lists& lists) {
    std::vector<Row> rows;
    for (const auto& [kind, selections] :
         {std::pair("group", &lists.groups), std::pair("target", &lists.targets)}) {
        for (const auto& [name, patterns] : *selections) {
            for (const auto& [file, title] : patterns) {
                rows.push_back({kind, shown(name, Tabs::ESCAPED), shown(file, Tabs::ESCAPED),
                                shown(title, Tabs::ESCAPED)});
            }
        }
    }
    return rows;
}

// Fields with a tab between them, for programs; on a terminal aligned columns.
void printText(const std::vector<Row>& rows) {
    if (::isatty(STDOUT_FILENO) != 1) {
        for (const Row& row : rows) {
            std::printf("%s\t%s\t%s\t%s\n", row.kind, row.name.c_str(), row.file.c_str(),
                        row.title.c_str());
        }
        return;
    }
    int name_width = 0;
    int file_width = 0;
    for (const Row& row : rows) {
        name_width = std::max(name_width, static_cast<int>(row.name.size()));
        file_width = std::max(file_width, static_cast<int>(row.file.size()));
    }
    for (const Row& row : rows) {
        std::printf("%-6s  %-*s  %-*s  %s\n", row.kind, name_width, row.name.c_str(), file_width,
                    row.file.c_str(), row.title.c_str());
    }
}

}  // namespace

int listSelections(const CheckOptions& options, root_tbl& root) {
    PatternDirectory directory;
    if (!readDirectory(installedPatterns(), directory)) {
        return STATUS_UNREADABLE;
    }
    int status = 0;
    Lists lists;
    complainOfLinks(directory);
    for (const std::string& path : directory.files) {
        const auto file = readFile(path, FileKind::PATTERN, root);
        if (file == nullptr) {
            status = STATUS_UNREADABLE;
        } else {
            addPattern(lists, *file);
        }
    }
    if (options.format == Format::JSON) {
        std::puts(dumped({{"version", 1},
                          {"groups", jsonOf(lists.groups)},
                          {"targets", jsonOf(lists.targets)}})
                      .c_str());
    } else {
        printText(rowsOf(lists));
    }
    return status;
}
