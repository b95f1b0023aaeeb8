#include "check/IGCheckWarning.h"

#include <fnmatch.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>
#include <unordered_set>

#include "check/IGCheckOutput.h"
#include "check/IGCheckTool.h"
#include "common/base/IGCmnList.h"
#include "tool/IGSecretFile.h"

namespace {

constexpr std::int32_t LONG_TIMEOUT = 300;  // seconds
constexpr const char* NULL_DEVICE = "/dev/null";

// Secret files, besides those that isSecretFile knows by their names. A data item may also bring
// one with a directory above it, or by a wildcard: "user" and "x" stand for any name.
constexpr const char* SECRET_FILES[] = {
    "/etc/shadow",
    "/etc/gshadow",
    "/etc/security/opasswd",
    "/etc/sudoers",
    "/etc/krb5.keytab",
    "/etc/ssh/ssh_host_rsa_key",
    "/etc/ssh/ssh_host_ecdsa_key",
    "/etc/ssh/ssh_host_ed25519_key",
    "/etc/ssl/private/x",
    "/etc/pki/tls/private/x",
    "/etc/letsencrypt/live/x",
    "/etc/letsencrypt/archive/x",
    "/etc/wireguard/x",
    "/etc/NetworkManager/system-connections/x",
    "/etc/kubernetes/admin.conf",
    "/root/.ssh/id_rsa",
    "/root/.ssh/id_ed25519",
    "/home/user/.ssh/id_rsa",
    "/home/user/.ssh/id_ed25519",
};
// The same by their names, in any directory.
constexpr const char* SECRET_NAMES[] = {
    "*/.netrc", "*/.pgpass", "*/.my.cnf", "*/.ssh", "*/.ssh/[*]", "*/.gnupg", "*.pem",
};

// "4913" is the name with which vim tries whether it can write to a directory.
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

// The path itself when a data item of this path may collect secrets; else "".
std::string secretPath(const std::string& path) {
    const bool is_secret =
        !isInOutput(path) &&
        (isSecretFile(path.c_str()) || isSecretFile((path + "/x").c_str()) ||
         matchesAny(path, SECRET_NAMES) ||
         std::any_of(std::begin(SECRET_FILES), std::end(SECRET_FILES),
                     [&](const char* secret) { return collects(path, secret); }));
    return is_secret ? path : "";
}

// The first argument that is a path of secrets, when the tool does not mask them.
std::string secretArgument(const ToolUse& use) {
    for (std::size_t i = use.arguments; i < use.words.size() && !use.masked; ++i) {
        const std::string& word = use.words[i];
        if (word.starts_with("/") && word != "/" && !secretPath(word).empty()) {
            return word;
        }
    }
    return "";
}

// One pattern file and what is known about it.
class PatternCheck {
  public:
    PatternCheck(CheckedFile& file, const root_tbl& root, Outputs& outputs)
        : file_(file), root_(root), outputs_(outputs) {}

    void run() {
        directory_ = outputs_.directoryOf(targets());
        findDataPaths();
        // What matters most comes first: a file may have more findings than are shown.
        for (const PlacedBlock& block : file_.blocks) {
            for (const PlacedItem& item : block.items) {
                checkSecrets(item);
            }
        }
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
            ++index_;
            item.item->kind == ITEM_TOOL ? checkTool(item) : checkData(item);
        }
    }

    void checkSecrets(const PlacedItem& item) {
        const bool is_tool = item.item->kind == ITEM_TOOL;
        const PlacedValue* value = item.find(is_tool ? "COMMAND_LINE" : "PATH_NAME");
        if (value == nullptr) {
            return;
        }
        const std::string secret = is_tool
                                       ? secretArgument(toolOf(item.item->tool.command_line, root_))
                                       : secretPath(pathOf(item.item->data.path_name, root_));
        if (!secret.empty()) {
            file_.warn(Warning::PATH_SECRET, value->place, {.detail = secret});
        }
    }

    void checkData(const PlacedItem& item) {
        for (const PlacedValue& value : item.values) {
            checkUse(value, false);
        }
        if (item.find("DESCRIPTION") == nullptr && !item.has_mistake) {
            file_.warn(Warning::DESCRIPTION_MISSING, item.place);
        }
        if (const PlacedValue* path = item.find("PATH_NAME"); path != nullptr) {
            const std::string normal = pathOf(item.item->data.path_name, root_);
            if (parentOf(normal).find_first_of("*?[") != std::string::npos) {
                file_.warn(Warning::PATH_WILDCARD, path->place);
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
        if (timeout == nullptr) {
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

    void checkArguments(const PlacedItem& item) {
        const PlacedValue* command = item.find("COMMAND_LINE");
        const ToolUse use = toolOf(item.item->tool.command_line, root_);
        const auto sign = std::find_if(use.words.begin(), use.words.end(), isShellSign);
        if (command != nullptr && sign != use.words.end()) {
            file_.warn(Warning::ARGUMENT_SHELL, command->place, {.detail = *sign});
        }
    }

    void checkOutput(const PlacedItem& item) {
        const PlacedValue* redirect = item.find("REDIRECT_PATH");
        if (redirect == nullptr) {
            // A tool that gets the directory writes files itself.
            const std::string command = expanded(item.item->tool.command_line, root_);
            if (!item.has_mistake && command.find("%d%") == std::string::npos) {
                file_.warn(Warning::OUTPUT_UNCOLLECTED, item.place,
                           {.detail = "without REDIRECT_PATH the output goes to the terminal"});
            }
            return;
        }
        const std::string path = pathOf(item.item->tool.redirect_path, root_);
        if (path == NULL_DEVICE) {
            return;
        }
        if (!isInPatternDirectory(path)) {
            file_.warn(Warning::OUTPUT_OUTSIDE, redirect->place);
        }
        if (!data_.collectAfter(path, index_) && !file_.hasError()) {
            file_.warn(Warning::OUTPUT_UNCOLLECTED, redirect->place,
                       {.detail = "no data item after this tool collects its output"});
        }
        const std::string here = file_.name + ":" + std::to_string(redirect->place.line);
        const std::string* other =
            outputs_.add(isInPatternDirectory(path) ? directory_ : 0, path, here);
        if (other != nullptr) {
            file_.warn(Warning::OUTPUT_SHARED, redirect->place, {.detail = *other});
        }
    }

    // All targets of the pattern, in their order, which name its directory.
    [[nodiscard]] std::string targets() const {
        std::string result;
        std::unordered_set<std::string> known;
        for (const PlacedBlock& block : file_.blocks) {
            for (const char& target : walkStrings(block.block->target)) {
                if (known.insert(&target).second) {
                    result += std::string(&target) + "\n";
                }
            }
        }
        return result;
    }

    void findDataPaths() {
        std::size_t index = 0;
        for (const PlacedBlock& block : file_.blocks) {
            for (const PlacedItem& item : block.items) {
                ++index;
                if (item.item->kind == ITEM_DATA && item.item->data.path_name != nullptr) {
                    data_.add(pathOf(item.item->data.path_name, root_), index);
                }
            }
        }
    }

    CheckedFile& file_;
    const root_tbl& root_;
    Outputs& outputs_;
    std::size_t directory_ = 0;
    DataPaths data_;
    std::size_t index_ = 0;  // of the item that is checked
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
