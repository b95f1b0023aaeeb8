#include "check/IGCheckWarning.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

#include "check/IGCheckTool.h"
#include "common/base/IGCmnList.h"
#include "tool/IGSecretFile.h"

namespace {

constexpr std::int32_t LONG_TIMEOUT = 300;  // seconds
constexpr const char* NULL_DEVICE = "/dev/null";

// Secret files that also a directory or a wildcard may bring along.
constexpr const char* SECRET_FILES[] = {
    "/etc/shadow",
    "/etc/gshadow",
    "/etc/krb5.keytab",
    "/etc/ssh/ssh_host_rsa_key",
    "/etc/ssh/ssh_host_ecdsa_key",
    "/etc/ssh/ssh_host_ed25519_key",
    "/etc/ssl/private/key",
    "/etc/pki/tls/private/key",
    "/root/.ssh/id_rsa",
    "/root/.ssh/id_ed25519",
};

constexpr const char* LEFTOVERS[] = {
    "*~",        "#*#",     "*.bak",  "*.orig",   "*.rej",    "*.swp",     "*.swo",
    "*.swx",     "*.tmp",   "*.save", "*.old",    "*.new",    "*.rpmnew",  "*.rpmsave",
    "*.rpmorig", "*.ucf-*", ".#*",    "*.dpkg-*", "*.pacnew", "*.pacsave", "4913",
};

// What a shell would act on. In a script for a shell it is part of a longer word.
bool isShellSign(const std::string& word) {
    constexpr const char* SIGNS[] = {"|", "||", "&&", "&", ";", ">", ">>", "<", "2>", "2>&1", "&>"};
    return std::find(std::begin(SIGNS), std::end(SIGNS), word) != std::end(SIGNS);
}

bool matchesAny(const std::string& text, std::span<const char* const> wildcards) {
    return std::any_of(wildcards.begin(), wildcards.end(), [&](const char* wildcard) {
        return ::fnmatch(wildcard, text.c_str(), 0) == 0;
    });
}

// One pattern file and what is known about it.
class PatternCheck {
  public:
    PatternCheck(CheckedFile& file, const root_tbl& root, Outputs& outputs)
        : file_(file), root_(root), outputs_(outputs) {}

    void run() {
        for (const PlacedValue& value : file_.values) {
            checkUse(value, value.keyword == "PP_VRS" || value.keyword == "PP_KATAMEI");
        }
        for (const PlacedBlock& block : file_.blocks) {
            checkBlock(block);
        }
    }

  private:
    // Warns of a value that is not used, is empty or joined to a comment.
    void checkUse(const PlacedValue& value, bool unused, const char* why = "") {
        if (unused) {
            file_.warn(Warning::KEYWORD_UNUSED, value.keyword_place, {value.keyword, why});
        } else if (value.value.empty()) {
            file_.warn(Warning::KEYWORD_UNUSED, value.keyword_place,
                       {value.keyword, ": its value is empty"});
        } else if (value.joined && !continues(value)) {
            file_.warn(Warning::COMMENT_ADJACENT, value.keyword_place);
        }
    }

    // Whether the value's comment is known as the cause of an error.
    [[nodiscard]] bool continues(const PlacedValue& value) const {
        const Rule* rule = &ruleOf(Refusal::COMMENT_JOINED);
        return std::any_of(
            file_.findings.begin(), file_.findings.end(), [&](const Finding& finding) {
                return finding.rule == rule && finding.note_place.line == value.place.line;
            });
    }

    void checkBlock(const PlacedBlock& block) {
        for (const PlacedValue& value : block.values) {
            checkUse(value, false);
        }
        if (block.block->target == nullptr && file_.pattern->group == nullptr &&
            !file_.hasError()) {
            file_.warn(Warning::PATTERN_UNREACHABLE, block.place);
        }
        for (const PlacedItem& item : block.items) {
            item.item->kind == ITEM_TOOL ? checkTool(item) : checkData(item);
        }
    }

    void checkData(const PlacedItem& item) {
        for (const PlacedValue& value : item.values) {
            checkUse(value, false);
        }
        if (item.item->data.description == nullptr && !item.has_mistake) {
            file_.warn(Warning::DESCRIPTION_MISSING, item.place);
        }
        if (const PlacedValue* path = item.find("PATH_NAME"); path != nullptr) {
            const std::string normal = normalPath(expanded(item.item->data.path_name, root_));
            if (isSecret(normal)) {
                file_.warn(Warning::PATH_SECRET, path->place, {.detail = normal});
            }
            if (parentOf(normal).find_first_of("*?[") != std::string::npos) {
                file_.warn(Warning::PATH_WILDCARD, path->place);
            }
        }
    }

    static bool isSecret(const std::string& path) {
        if (isInPatternDirectory(path)) {
            return false;
        }
        return isSecretFile(path.c_str()) || isSecretFile((path + "/x").c_str()) ||
               std::any_of(std::begin(SECRET_FILES), std::end(SECRET_FILES),
                           [&](const char* secret) { return collects(path, secret); });
    }

    // Whether a data item of this path brings a file: the path may be a directory above the file,
    // and its last component a wildcard.
    static bool collects(const std::string& path, std::string_view file) {
        for (std::size_t end = file.find('/', 1);; end = file.find('/', end + 1)) {
            const std::string part(file.substr(0, end));
            if (part == path || path == "/" ||
                (parentOf(part) == parentOf(path) &&
                 ::fnmatch(path.c_str(), part.c_str(), FNM_NOESCAPE | FNM_PATHNAME) == 0)) {
                return true;
            }
            if (end == std::string_view::npos) {
                return false;
            }
        }
    }

    void checkTool(const PlacedItem& item) {
        const tool_block& tool = item.item->tool;
        const bool unlimited = item.find("TIMEOUT") != nullptr && tool.timeout < 1;
        for (const PlacedValue& value : item.values) {
            const bool unused = unlimited && (value.keyword == "TIMEOUT_SIGNAL" ||
                                              value.keyword == "WAIT_TERMINATION");
            checkUse(value, unused, " without a time limit");
        }
        checkTimeout(item, unlimited);
        if (tool.command_line != nullptr) {
            checkArguments(item);
            checkOutput(item);
        }
    }

    void checkTimeout(const PlacedItem& item, bool unlimited) {
        const PlacedValue* timeout = item.find("TIMEOUT");
        const std::int32_t seconds = item.item->tool.timeout;
        if (timeout == nullptr || timeout->value.empty()) {
            if (!item.has_mistake) {
                file_.warn(Warning::TIMEOUT_MISSING, item.place);
            }
        } else if (unlimited) {
            file_.warn(Warning::TIMEOUT_LONG, timeout->place,
                       {.detail = "no time limit: a tool that hangs would hang the run"});
        } else if (seconds > LONG_TIMEOUT) {
            const std::string detail =
                "the time limit is " + std::to_string(seconds) + " s, more than five minutes";
            file_.warn(Warning::TIMEOUT_LONG, timeout->place, {.detail = detail});
        }
    }

    // The commands of the tool directory mask or leave out secrets.
    void checkArguments(const PlacedItem& item) {
        const ToolUse use = toolOf(item.item->tool.command_line, root_);
        const PlacedValue* command = item.find("COMMAND_LINE");
        if (command == nullptr) {
            return;
        }
        const auto sign = std::find_if(use.words.begin(), use.words.end(), isShellSign);
        if (sign != use.words.end()) {
            file_.warn(Warning::ARGUMENT_SHELL, command->place, {.detail = *sign});
        }
        if (use.words.empty() || use.words[0].starts_with(toolPath(""))) {
            return;
        }
        const auto secret =
            std::find_if(use.words.begin() + 1, use.words.end(), [](const std::string& word) {
                return word.starts_with("/") && isSecret(word) && word != "/";
            });
        if (secret != use.words.end()) {
            file_.warn(Warning::PATH_SECRET, command->place, {.detail = *secret});
        }
    }

    void checkOutput(const PlacedItem& item) {
        const PlacedValue* redirect = item.find("REDIRECT_PATH");
        if (redirect == nullptr) {
            // A tool that gets the directory writes files itself.
            if (expanded(item.item->tool.command_line, root_).find("%d%") == std::string::npos) {
                file_.warn(Warning::OUTPUT_UNCOLLECTED, item.place,
                           {.detail = "without REDIRECT_PATH the output goes to the terminal"});
            }
            return;
        }
        const std::string path = normalPath(expanded(item.item->tool.redirect_path, root_));
        if (path == NULL_DEVICE) {
            return;
        }
        if (!isInPatternDirectory(path)) {
            file_.warn(Warning::OUTPUT_OUTSIDE, redirect->place);
        }
        if (!isCollected(item, path) && !file_.hasError()) {
            file_.warn(Warning::OUTPUT_UNCOLLECTED, redirect->place,
                       {.detail = "no data item after this tool collects its output"});
        }
        checkShared(*redirect, path);
    }

    [[nodiscard]] bool isCollected(const PlacedItem& tool, const std::string& path) const {
        bool after = false;
        for (const PlacedBlock& block : file_.blocks) {
            for (const PlacedItem& item : block.items) {
                after = after || &item == &tool;
                if (after && item.item->kind == ITEM_DATA && item.item->data.path_name != nullptr &&
                    collects(normalPath(expanded(item.item->data.path_name, root_)), path)) {
                    return true;
                }
            }
        }
        return false;
    }

    void checkShared(const PlacedValue& redirect, const std::string& path) {
        const std::string here = file_.name + ":" + std::to_string(redirect.place.line);
        const auto [known, is_new] =
            outputs_.emplace((isInPatternDirectory(path) ? targets() : "") + path, here);
        if (!is_new) {
            file_.warn(Warning::OUTPUT_SHARED, redirect.place, {.detail = known->second});
        }
    }

    // All targets of the pattern, which name its directory.
    [[nodiscard]] std::string targets() const {
        std::string result;
        for (const PlacedBlock& block : file_.blocks) {
            for (const char& target : walkStrings(block.block->target)) {
                if (("\n" + result).find("\n" + std::string(&target) + "\n") == std::string::npos) {
                    result += std::string(&target) + "\n";
                }
            }
        }
        return result;
    }

    CheckedFile& file_;
    const root_tbl& root_;
    Outputs& outputs_;
};

}  // namespace

void warnOfPattern(CheckedFile& file, const root_tbl& root, Outputs& outputs) {
    PatternCheck(file, root, outputs).run();
}

void warnOfConfiguration(CheckedFile& file) {
    for (const PlacedValue& value : file.values) {
        if (value.value.ends_with('\r')) {
            file.warn(Warning::VALUE_CARRIAGE_RETURN, value.place);
        }
    }
}

bool isLeftover(const std::string& name) {
    return matchesAny(name, LEFTOVERS);
}
