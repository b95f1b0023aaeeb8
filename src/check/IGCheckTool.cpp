#include "check/IGCheckTool.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "common/base/IGCmnList.h"
#include "common/base/IGCmnSystem.h"
#include "common/base/IGGuards.h"
#include "common/file/IGCmnPath.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"
#include "process/IGCommandLine.h"

namespace {

constexpr std::int64_t MIB = std::int64_t{1} << 20U;
constexpr std::int64_t RUN_MIB = 20;    // what "run" lets a program print without -l
constexpr std::int64_t SHOW_MIB = 5;    // what "show" prints of each file without -l
constexpr std::int64_t SHOW_FILES = 4;  // and of all files: that many times as much
constexpr std::int64_t NO_LIMIT = -1;
constexpr const char* OWN_DIRECTORY = "%d%";

std::vector<std::string> wordsOf(const std::string& command_line) {
    LocalPool local;
    IgCmnListHeader* words = nullptr;
    std::vector<std::string> result;
    if (splitWords(command_line.c_str(), &words, local.get()) && words != nullptr) {
        if (char** argv = makeArgv(*words, local.get()); argv != nullptr) {
            for (; *argv != nullptr; ++argv) {
                result.emplace_back(*argv);
            }
        }
    }
    return result;
}

// The options of a command, which are one letter each.
class Options {
  public:
    // `with_value`: the letters that a value follows.
    Options(const std::vector<std::string>& words, std::string_view with_value)
        : words_(words), with_value_(with_value) {}

    // The next option; 0 at the end.
    char next() {
        if (letter_ >= words_[word_].size()) {
            ++word_;
            letter_ = 1;
            if (word_ >= words_.size() || words_[word_].size() < 2 || words_[word_][0] != '-') {
                return 0;
            }
            if (words_[word_] == "--") {
                ++word_;
                return 0;
            }
        }
        const char option = words_[word_][letter_++];
        if (with_value_.find(option) != std::string_view::npos) {
            takeValue();
        }
        return option;
    }
    [[nodiscard]] const std::string& value() const { return value_; }
    // The index of the first word after the options, or of the end.
    [[nodiscard]] std::size_t rest() const { return word_ < words_.size() ? word_ : words_.size(); }

  private:
    void takeValue() {
        value_ = words_[word_].substr(letter_);
        if (value_.empty() && word_ + 1 < words_.size()) {
            value_ = words_[++word_];
        }
        letter_ = words_[word_].size();
    }

    const std::vector<std::string>& words_;
    std::string_view with_value_;
    std::size_t word_ = 0;
    std::size_t letter_ = std::string::npos;
    std::string value_;
};

// A number of MiB in bytes; no limit for what is none, which the command refuses.
std::int64_t mibOf(const std::string& text) {
    constexpr std::size_t MOST_DIGITS = 6;
    const bool number = !text.empty() && text.size() <= MOST_DIGITS &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    return number ? std::strtoll(text.c_str(), nullptr, 10) * MIB : NO_LIMIT;
}

void readRun(ToolUse& use) {
    use.most_bytes = RUN_MIB * MIB;
    Options options(use.words, "lenstu");
    for (char option = options.next(); option != 0; option = options.next()) {
        switch (option) {
            case 'c':
                use.own = true;
                break;
            case 'm':
                use.masked = true;
                break;
            case 'l':
                use.most_bytes = mibOf(options.value());
                break;
            case 'e':
                use.needed.push_back(options.value());
                break;
            case 's':
                use.needed.push_back("/sys/fs/cgroup/system.slice/" + options.value() + ".service");
                use.needed.push_back("/sys/fs/cgroup/systemd/system.slice/" + options.value() +
                                     ".service");
                break;
            case 'n':
                use.forbidden = options.value();
                break;
            default:
                break;
        }
    }
    use.name = options.rest() < use.words.size() ? use.words[options.rest()] : "";
    use.arguments = options.rest() + 1;
}

void readShow(ToolUse& use) {
    std::int64_t most = SHOW_MIB * MIB;
    Options options(use.words, "l");
    for (char option = options.next(); option != 0; option = options.next()) {
        most = option == 'l' ? mibOf(options.value()) : most;
    }
    use.most_bytes = most == NO_LIMIT ? NO_LIMIT : most * SHOW_FILES;
}

}  // namespace

std::string expanded(const char* value, const root_tbl& root) {
    LocalPool local;
    root_tbl copy = root;  // only here does %d% have a value
    std::string directory(OWN_DIRECTORY);
    copy.d = directory.data();
    const char* text = IgCmnReplaceStrs(value, 1, &copy, local.get(), nullptr);
    return text == nullptr ? "" : text;
}

std::string normalPath(const std::string& path) {
    LocalPool local;
    char* normal = nullptr;
    const bool inside = isInOutput(path);
    const std::string absolute = inside ? "/" + path : path;
    if (IgCmnFileNormPath(local.get(), absolute.c_str(), &normal) != 0) {
        return path;
    }
    if (!inside) {
        return normal;
    }
    return isInPatternDirectory(normal + 1) ? normal + 1 : path;
}

std::string pathOf(const char* value, const root_tbl& root) {
    return normalPath(expanded(value, root));
}

bool isInPatternDirectory(const std::string& normal_path) {
    return normal_path == OWN_DIRECTORY ||
           (normal_path.starts_with(std::string(OWN_DIRECTORY) + "/") &&
            normal_path.find("/../") == std::string::npos && !normal_path.ends_with("/.."));
}

bool isInOutput(const std::string& path) {
    return path.starts_with(OWN_DIRECTORY);
}

std::string parentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

std::string toolPath(const std::string& name) {
    std::array<char, PATH_MAX> path{};
    IgCmnGetKestrumFile(IgCmnGetKestrumToolDir, name.c_str(), path.data(), path.size());
    return path.data();
}

const std::vector<std::string>& programDirectories() {
    static const std::vector<std::string> directories{"/usr/sbin",
                                                      "/usr/bin",
                                                      "/sbin",
                                                      "/bin",
                                                      "/usr/local/sbin",
                                                      "/usr/local/bin",
                                                      "/opt/MegaRAID/storcli",
                                                      "/opt/MegaRAID/perccli"};
    return directories;
}

ToolUse toolOf(const char* command_line, const root_tbl& root) {
    ToolUse use;
    use.words = wordsOf(expanded(command_line, root));
    if (use.words.empty()) {
        return use;
    }
    if (use.words[0] == toolPath("run")) {
        readRun(use);
    } else if (use.words[0] == toolPath("show")) {
        readShow(use);
        use.masked = true;
    }
    return use;
}
