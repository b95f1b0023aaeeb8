// Checks pattern and configuration files before a run: see quendil-check(8).
#include <sys/stat.h>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "check/IGCheckInput.h"
#include "check/IGCheckList.h"
#include "check/IGCheckMachine.h"
#include "check/IGCheckOption.h"
#include "check/IGCheckOutput.h"
#include "check/IGCheckPreview.h"
#include "check/IGCheckReport.h"
#include "check/IGCheckWarning.h"
#include "common/base/IGCmnMemory.h"
#include "common/base/IGGuards.h"
#include "common/base/IGLocale.h"
#include "common/report/IGCmnMessage.h"
#include "companion/IGText.h"
#include "ini/IGCmnReplaceStr.h"
#include "ini/IGIniTable.h"

namespace {

// The check of all files of one call.
class Check {
  public:
    Check(const CheckOptions& options, root_tbl& root)
        : options_(options), root_(root), machine_(root), report_(makeReport(options.format)) {}

    int run() {
        report_->begin();
        if (options_.config != nullptr || options_.operands.empty()) {
            checkFile(options_.config == nullptr ? installedConfiguration() : options_.config,
                      FileKind::CONFIGURATION);
        }
        if (options_.operands.empty()) {
            checkDirectory(installedPatterns());
        }
        for (const char* operand : options_.operands) {
            struct stat st = {};
            const bool is_directory = ::stat(operand, &st) == 0 && S_ISDIR(st.st_mode);
            is_directory ? checkDirectory(operand) : checkFile(operand, kindOf(operand));
        }
        report_->end(totals_);
        return status();
    }

  private:
    static std::unique_ptr<Report> makeReport(Format format) {
        switch (format) {
            case Format::JSON:
                return makeJsonReport();
            case Format::SARIF:
                return makeSarifReport();
            default:
                return makeTextReport();
        }
    }

    // A file with the name of the installed configuration is one.
    static FileKind kindOf(const std::string& path) {
        const bool same = nameOf(path) == nameOf(installedConfiguration());
        return same ? FileKind::CONFIGURATION : FileKind::PATTERN;
    }

    void checkFile(const std::string& path, FileKind kind, bool in_directory = false) {
        const auto file = readFile(path, kind, root_);
        if (file == nullptr) {
            ++totals_.unreadable;
            return;
        }
        if (kind == FileKind::PATTERN) {
            warnOfPattern(*file, root_, outputs_);
        } else {
            warnOfConfiguration(*file);
        }
        if (in_directory && isLeftover(nameOf(path))) {
            file->warn(Warning::FILE_LEFTOVER, {});
        }
        if (!options_.offline) {
            machine_.warn(*file);
        }
        report(*file);
        root_.output_dir = nullptr;  // of a configuration: its text ends with the file
    }

    void checkDirectory(const std::string& path) {
        PatternDirectory directory;
        if (!readDirectory(path, directory)) {
            ++totals_.unreadable;
            return;
        }
        for (const std::string& link : directory.dangling) {
            CheckedFile file;
            file.name = link;
            file.warn(Warning::LINK_DANGLING, {});
            report(file);
        }
        for (const std::string& name : directory.files) {
            checkFile(name, FileKind::PATTERN, true);
        }
    }

    void report(CheckedFile& file) {
        file.settle();
        report_->add(file);
        totals_.count(file);
    }

    [[nodiscard]] int status() const {
        if (totals_.unreadable > 0) {
            return STATUS_UNREADABLE;
        }
        const bool warned = options_.fail_level == Level::WARNING && totals_.warnings > 0;
        return totals_.errors > 0 || warned ? STATUS_FOUND : 0;
    }

    const CheckOptions& options_;
    root_tbl& root_;
    MachineCheck machine_;
    Outputs outputs_;
    std::unique_ptr<Report> report_;
    Totals totals_;
};

int act(const CheckOptions& options) {
    LocalPool pool;
    auto* root = newFromPool<root_tbl>(pool.get());
    if (root == nullptr || IgCmnSpecialStrInit(root, pool.get()) != 0) {
        std::fputs("quendil-check: the host name cannot be read, or memory ran out\n", stderr);
        return STATUS_UNREADABLE;
    }
    root->max_output_size = -1;
    switch (options.action) {
        case Action::LIST:
            return listSelections(options, *root);
        case Action::PREVIEW:
            return previewRun(options, *root);
        default:
            return Check(options, *root).run();
    }
}

// What could not be written was not said.
int finish(int status) {
    return finishOutput("quendil-check") ? status : STATUS_UNREADABLE;
}

}  // namespace

int main(int argc, char** argv) {
    CheckOptions options;
    if (!readOptions(argc, argv, options)) {
        return STATUS_UNREADABLE;
    }
    if (options.action == Action::HELP) {
        std::fputs(CHECK_USAGE, stdout);
        return finish(0);
    }
    if (options.action == Action::VERSION) {
        std::puts("quendil-check " QUENDIL_RELEASE);
        return finish(0);
    }
    chooseLocale();
    IgCmnMemoryInit();
    // Failed system calls are reported to the run log alone, which this program has not opened.
    IgCmnMsgSetMode(MSGMODE_COLLECTING);
    return finish(act(options));
}
