#include "check/IGCheckPreview.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "check/IGCheckInput.h"
#include "check/IGCheckMeasure.h"
#include "check/IGCheckTool.h"
#include "collect/IGCopy.h"
#include "collect/IGSizeLimit.h"
#include "common/base/IGCmnList.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGGuards.h"
#include "common/file/IGCmnFile.h"
#include "companion/IGJson.h"
#include "companion/IGText.h"
#include "ini/IGIniCheck.h"
#include "ini/IGIniCtrl.h"
#include "ini/IGIniTable.h"

using nlohmann::ordered_json;

namespace {

constexpr std::int64_t NONE = -1;  // no limit

struct PreviewItem {
    bool is_tool = false;
    std::string pattern;  // file name
    std::string what;     // the command line or the path, expanded
    // of a tool
    std::int32_t timeout = 0;
    std::int32_t wait = 0;
    std::int64_t most_bytes = NONE;
    std::string output;           // "" for the terminal
    bool reaches_output = false;  // it can write to the run's output
    // of a data item
    bool from_tool = false;
    Measured measured;
};

struct Sum {
    std::size_t files = 0;
    std::int64_t known = 0;
    std::int64_t most = 0;     // NONE without a bound
    std::int64_t seconds = 0;  // NONE without a bound
    std::int64_t limit = NONE;
    std::int64_t free = NONE;  // NONE when the directory may not be asked
};

struct Preview {
    std::vector<PreviewItem> items;
    bool selected = false;  // the run selects a block
    std::vector<std::string> skipped;
    std::string directory;
    Sum sum;
    std::vector<Finding> findings;
};

// A sum that is too large has no bound either.
void addBound(std::int64_t& sum, std::int64_t part) {
    if (sum == NONE || part == NONE || __builtin_add_overflow(sum, part, &sum)) {
        sum = NONE;
    }
}

PreviewItem toolItem(const tool_block& tool, const root_tbl& root) {
    PreviewItem item;
    item.is_tool = true;
    item.what = expanded(tool.command_line, root);
    item.timeout = tool.timeout;
    item.wait = tool.wait_termination;
    item.most_bytes = toolOf(tool.command_line, root).most_bytes;
    if (tool.redirect_path != nullptr) {
        item.output = expanded(tool.redirect_path, root);
    }
    item.reaches_output = isInOutput(item.output) || item.what.find("%d%") != std::string::npos;
    return item;
}

// The selected targets, which name the directory of a pattern.
std::string targetsOf(const pickptn_tbl& pattern) {
    std::string targets;
    for (const ptn_block& block : walkList<ptn_block>(pattern.blocks)) {
        for (const char& target : walkStrings(block.skip == 0 ? block.target : nullptr)) {
            targets += std::string(&target) + "\n";
        }
    }
    return targets;
}

class Collector {
  public:
    Collector(Preview& preview, root_tbl& root) : preview_(preview), root_(root) {}

    // Adds the items of a pattern that the run selects.
    void add(const CheckedFile& file) {
        const pickptn_tbl& pattern = *file.pattern;
        root_.crnt_ptn_def = file.pattern;
        LocalPool local;
        if (IgIniMatchSelection(pattern.group, pattern.name, root_.pp_group, root_.pp_name) == 0 ||
            blockSelect(local.get(), &root_) == 0) {
            return;
        }
        preview_.selected = true;
        const std::string name = nameOf(file.name);
        const std::string directory = targetsOf(pattern);
        for (const ptn_block& block : walkList<ptn_block>(pattern.blocks)) {
            for (const collect_item& item :
                 walkList<collect_item>(block.skip == 0 ? block.items : nullptr)) {
                preview_.items.push_back(item.kind == ITEM_TOOL ? toolItem(item.tool, root_)
                                                                : dataItem(item.data, directory));
                preview_.items.back().pattern = name;
                count(preview_.items.back());
            }
        }
    }

  private:
    PreviewItem dataItem(const data_block& data, const std::string& directory) {
        PreviewItem item;
        item.what = pathOf(data.path_name, root_);
        item.from_tool = isInOutput(item.what);
        if (!item.from_tool) {
            item.measured = measure_.item(item.what, directory);
        }
        return item;
    }

    void count(const PreviewItem& item) {
        Sum& sum = preview_.sum;
        if (item.is_tool) {
            addBound(sum.most, item.reaches_output ? item.most_bytes : 0);
            addBound(sum.seconds, item.timeout < 1 ? NONE : std::int64_t{item.timeout} + item.wait);
            return;
        }
        sum.files += item.measured.files;
        sum.known += std::min(item.measured.bytes, INT64_MAX - sum.known);
        addBound(sum.most, item.measured.bytes);
        addBound(sum.most,
                 static_cast<std::int64_t>(item.measured.kernel_files) * KERNEL_FILE_LIMIT);
    }

    Preview& preview_;
    root_tbl& root_;
    Measure measure_;
};

std::string bytesText(std::int64_t bytes) {
    constexpr std::array<const char*, 5> UNITS{"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1024 && unit + 1 < UNITS.size()) {
        value /= 1024;
        ++unit;
    }
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", value, UNITS[unit]);
    return text.data();
}

std::string timeText(std::int64_t seconds) {
    std::array<char, 60> text{};
    std::snprintf(text.data(), text.size(), "%lld h %lld min %lld s",
                  static_cast<long long>(seconds / 3600), static_cast<long long>(seconds / 60 % 60),
                  static_cast<long long>(seconds % 60));
    return text.data();
}

void addFinding(Preview& preview, Warning warning, const std::string& detail) {
    preview.findings.push_back(warningOf(warning, {}, {.detail = detail}));
}

// Finds the free space in the directory, and refuses what a run would refuse. False after it has
// said why.
bool measureSpace(Preview& preview) {
    const char* path = preview.directory.c_str();
    struct statvfs fs = {};
    if (::statvfs(path, &fs) != 0) {
        const int error = errno;
        if (error != EACCES) {
            complain(preview.directory, std::strerror(error));
        }
        return error == EACCES;
    }
    const bool is_directory = IgCmnFileIsDir(path) != 0;
    if (!is_directory || IgCmnFileCheckMode(path, S_IWUSR) == 0) {
        complain(preview.directory,
                 is_directory ? "not writable: no run starts" : "not a directory: no run starts");
        return false;
    }
    preview.sum.free =
        static_cast<std::int64_t>(fs.f_bfree) * static_cast<std::int64_t>(fs.f_frsize);
    return true;
}

// Compares the sizes with the space and the limit.
void judge(Preview& preview, const root_tbl& root) {
    Sum& sum = preview.sum;
    sum.limit = limitInBytes(root) > 0 ? limitInBytes(root) : NONE;
    if (sum.limit != NONE) {
        sum.most = sum.most == NONE ? sum.limit : std::min(sum.most, sum.limit);
    }
    if (sum.free != NONE && sum.known > sum.free) {
        addFinding(preview, Warning::SPACE_SHORT,
                   "the files have " + bytesText(sum.known) + ", but " + preview.directory +
                       " has only " + bytesText(sum.free) + " free");
    }
    if (sum.limit != NONE && sum.known > sum.limit) {
        addFinding(preview, Warning::LIMIT_EXCEEDED,
                   "the files have " + bytesText(sum.known) + ", but the size limit is " +
                       bytesText(sum.limit) + ": the rest is left out");
    }
}

ordered_json orNull(std::int64_t value) {
    return value == NONE ? ordered_json(nullptr) : ordered_json(value);
}

ordered_json jsonOf(const PreviewItem& item) {
    if (item.is_tool) {
        return {{"kind", "tool"},
                {"pattern", item.pattern},
                {"command", item.what},
                {"timeout", item.timeout < 1 ? ordered_json(nullptr) : ordered_json(item.timeout)},
                {"wait", item.wait},
                {"output", item.output.empty() ? ordered_json(nullptr) : ordered_json(item.output)},
                {"most_bytes", orNull(item.most_bytes)}};
    }
    ordered_json value{{"kind", "data"},
                       {"pattern", item.pattern},
                       {"path", item.what},
                       {"from_tool", item.from_tool}};
    if (!item.from_tool) {
        value["found"] = item.measured.found;
        value["files"] = item.measured.files;
        value["bytes"] = item.measured.bytes;
        value["kernel_files"] = item.measured.kernel_files;
        value["unreadable"] = item.measured.unreadable;
    }
    return value;
}

void printJson(const Preview& preview) {
    ordered_json items = ordered_json::array();
    for (const PreviewItem& item : preview.items) {
        items.push_back(jsonOf(item));
    }
    ordered_json findings = ordered_json::array();
    for (const Finding& finding : preview.findings) {
        findings.push_back({{"level", nameOf(finding.rule->level)},
                            {"rule", finding.rule->name},
                            {"message", finding.text}});
    }
    const Sum& sum = preview.sum;
    std::puts(dumped({{"version", 1},
                      {"items", items},
                      {"skipped", preview.skipped},
                      {"totals",
                       {{"files", sum.files},
                        {"known_bytes", sum.known},
                        {"most_bytes", orNull(sum.most)},
                        {"most_seconds", orNull(sum.seconds)},
                        {"limit_bytes", orNull(sum.limit)},
                        {"free_bytes", orNull(sum.free)}}},
                      {"directory", preview.directory},
                      {"findings", findings}})
                  .c_str());
}

std::string toolText(const PreviewItem& item) {
    std::string text = item.timeout < 1 ? "no time limit"
                                        : std::to_string(item.timeout) + " s + " +
                                              std::to_string(item.wait) + " s";
    text += item.most_bytes == NONE ? "" : ", at most " + bytesText(item.most_bytes);
    return text;
}

std::string dataText(const PreviewItem& item) {
    const Measured& measured = item.measured;
    if (item.from_tool) {
        return "output of a tool";
    }
    if (!measured.found) {
        return "nothing matches";
    }
    std::string text = counted(measured.files, "file") + ", " + bytesText(measured.bytes);
    if (measured.kernel_files > 0) {
        text += ", " + counted(measured.kernel_files, "file") + " of the kernel";
    }
    if (measured.unreadable > 0) {
        text += ", " + std::to_string(measured.unreadable) + " not readable";
    }
    return text;
}

void printText(const Preview& preview) {
    std::string pattern;
    for (const PreviewItem& item : preview.items) {
        if (item.pattern != pattern) {
            pattern = item.pattern;
            std::printf("%s\n", shown(pattern).c_str());
        }
        std::printf("  %s %s (%s)\n", item.is_tool ? "tool" : "data", shown(item.what).c_str(),
                    (item.is_tool ? toolText(item) : dataText(item)).c_str());
    }
    const Sum& sum = preview.sum;
    std::printf("\n%s\n", counted(preview.items.size(), "item").c_str());
    std::printf("known size:    %s in %s\n", bytesText(sum.known).c_str(),
                counted(sum.files, "file").c_str());
    std::printf("at most:       %s\n", sum.most == NONE ? "no limit" : bytesText(sum.most).c_str());
    std::printf("longest time:  %s\n",
                sum.seconds == NONE ? "no limit" : timeText(sum.seconds).c_str());
    std::printf("size limit:    %s\n", sum.limit == NONE ? "none" : bytesText(sum.limit).c_str());
    std::printf("free space:    %s in %s\n",
                sum.free == NONE ? "not known" : bytesText(sum.free).c_str(),
                shown(preview.directory).c_str());
    for (const Finding& finding : preview.findings) {
        std::printf("%s: %s [%s]\n", nameOf(finding.rule->level), shown(finding.text).c_str(),
                    finding.rule->name);
    }
}

// Sets the selections of the options; false when memory runs out.
bool select(const CheckOptions& options, root_tbl& root, memory_pool* pool) {
    for (const char* group : options.groups) {
        if (IgIniCollectList(group, &root.pp_group, pool) != 0) {
            return false;
        }
    }
    for (const char* target : options.targets) {
        if (IgIniCollectList(target, &root.target, pool) != 0) {
            return false;
        }
    }
    return true;
}

std::string installedOutput() {
    std::array<char, PATH_MAX> path{};
    IgCmnGetKestrumOutputDir(path.data(), path.size());
    return path.data();
}

// Reads the configuration, whose mistakes end a run. Returns the exit status.
int configure(const CheckOptions& options, root_tbl& root, Preview& preview) {
    const std::string path = options.config == nullptr ? installedConfiguration() : options.config;
    const auto config = readFile(path, FileKind::CONFIGURATION, root);
    if (config == nullptr) {
        return STATUS_UNREADABLE;
    }
    if (config->hasError()) {
        const Finding& first = config->findings.front();
        complain(path + ":" + std::to_string(first.place.line), first.text + ": no run starts");
        return STATUS_FOUND;
    }
    preview.directory = options.directory != nullptr ? options.directory
                        : root.output_dir != nullptr ? root.output_dir
                                                     : installedOutput();
    return 0;
}

}  // namespace

int previewRun(const CheckOptions& options, root_tbl& root) {
    Preview preview;
    LocalPool local;
    PatternDirectory directory;
    if (const int status = configure(options, root, preview); status != 0) {
        return status;
    }
    if (!readDirectory(installedPatterns(), directory) || !select(options, root, local.get())) {
        return STATUS_UNREADABLE;
    }
    complainOfLinks(directory);
    int status = directory.dangling.empty() ? 0 : STATUS_FOUND;
    Collector collector(preview, root);
    for (const std::string& path : directory.files) {
        const auto file = readFile(path, FileKind::PATTERN, root);
        if (file == nullptr) {
            status = STATUS_UNREADABLE;
            preview.skipped.push_back(path);
        } else if (file->hasError()) {
            complain(path, "skipped: it has errors");
            preview.skipped.push_back(path);
        } else {
            collector.add(*file);
        }
    }
    if (!measureSpace(preview)) {
        return STATUS_UNREADABLE;
    }
    judge(preview, root);
    if (!preview.selected) {
        std::fputs("quendil-check: no pattern is selected\n", stderr);
    }
    if (options.format == Format::JSON) {
        printJson(preview);
    } else if (preview.selected) {
        printText(preview);
    }
    const bool found = !preview.selected || !preview.findings.empty();
    return status == 0 && found ? STATUS_FOUND : status;
}
