// Makes a page of the result of a run: see quendil-report(8).
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/base/IGLocale.h"
#include "companion/IGArchive.h"
#include "companion/IGInput.h"
#include "companion/IGOutputFile.h"
#include "companion/IGText.h"
#include "view/IGViewCompare.h"
#include "view/IGViewDefinition.h"
#include "view/IGViewDiffOutput.h"
#include "view/IGViewDiffPage.h"
#include "view/IGViewOption.h"
#include "view/IGViewOutput.h"
#include "view/IGViewOverview.h"
#include "view/IGViewOverviewPage.h"
#include "view/IGViewPageFile.h"
#include "view/IGViewScan.h"
#include "view/IGViewSection.h"

namespace {

constexpr const char* PROGRAM = "quendil-report";
constexpr std::uint64_t MIB = std::uint64_t{1024} * 1024;
constexpr std::size_t MOST_DEFINITION_BYTES = 16 * MIB;  // the built-in ones have 64 KiB

// Adds the built-in definitions and those of the user's files.
bool readDefinitions(const ReportOptions& options, Definitions& definitions) {
    std::string why;
    if (!definitions.add(builtInDefinitions(), why)) {
        complain(PROGRAM, "built-in definitions", why);
        return false;
    }
    for (const char* path : options.rules) {
        std::string text;
        if (!readInput(path, MOST_DEFINITION_BYTES, text, why) || !definitions.add(text, why)) {
            complain(PROGRAM, path, why);
            return false;
        }
    }
    return true;
}

// Prints the name of a page, and gives the page this name last: if the name cannot be printed,
// there is no page.
bool publish(OutputFile& page, const std::string& name) {
    std::printf("%s\n", shown(name).c_str());
    if (!finishOutput(PROGRAM)) {
        return false;
    }
    if (!page.commit()) {
        complain(PROGRAM, name, page.error());
        return false;
    }
    return true;
}

int makePage(const ReportOptions& options, ArchiveReader& archive, const Result& result,
             OutputFile& page, const std::string& name) {
    if (!writePageFile(page, archive, result, options.limit * MIB)) {
        complain(PROGRAM, name, page.error());
        return STATUS_UNUSABLE;
    }
    if (!publish(page, name)) {
        return STATUS_UNUSABLE;
    }
    return result.damaged ? STATUS_DAMAGED : 0;
}

// The page is opened before the work, so that one that cannot be written is noticed then.
int printDiff(const ReportOptions& options, const Diff& diff, OutputFile& page) {
    if (options.action == ReportAction::TEXT) {
        printDiffText(diff);
    } else if (options.action == ReportAction::JSON) {
        printDiffJson(diff);
    } else {
        const auto sink = [&](std::string_view bytes) { return page.write(bytes); };
        if (!writeDiffPage(diff, sink)) {
            complain(PROGRAM, options.output, page.error());
            return STATUS_UNUSABLE;
        }
        if (!publish(page, options.output)) {
            return STATUS_UNUSABLE;
        }
    }
    return diff.damaged() ? STATUS_DAMAGED : 0;
}

int reportDiff(const ReportOptions& options, const Definitions& definitions) {
    const std::string old_path = options.operands[0];
    const std::string new_path = options.operands[1];
    std::string why;
    const auto old_archive = openArchive(old_path, options.follow_links, why);
    if (old_archive == nullptr) {
        complain(PROGRAM, old_path, why);
        return STATUS_UNUSABLE;
    }
    const auto new_archive = openArchive(new_path, options.follow_links, why);
    if (new_archive == nullptr) {
        complain(PROGRAM, new_path, why);
        return STATUS_UNUSABLE;
    }
    OutputFile page;
    if (options.output != nullptr && !page.open(options.output)) {
        complain(PROGRAM, options.output, page.error());
        return STATUS_UNUSABLE;
    }
    Diff diff;
    if (!compareArchives({old_path, *old_archive}, {new_path, *new_archive}, definitions,
                         options.all, diff, why)) {
        std::fprintf(stderr, "quendil-report: %s\n", shown(why).c_str());
        return STATUS_UNUSABLE;
    }
    return printDiff(options, diff, page);
}

int reportOverview(const ReportOptions& options, const Definitions& definitions) {
    const std::string directory = options.operands[0];
    const std::string index =
        options.output != nullptr ? options.output : directory + "/index.html";
    std::vector<std::string> problems;
    const std::vector<std::string> results = findResults(directory, problems);
    for (const std::string& problem : problems) {
        std::fprintf(stderr, "quendil-report: %s\n", shown(problem).c_str());
    }
    if (results.empty()) {
        complain(PROGRAM, directory, "there is no result of a run in it");
        return STATUS_UNUSABLE;
    }
    OutputFile page;
    if (!page.open(index)) {
        complain(PROGRAM, index, page.error());
        return STATUS_UNUSABLE;
    }
    Overview overview(definitions, directory, index, options.limit * MIB, options.follow_links);
    for (const std::string& result : results) {
        const OverviewRow& row = overview.add(result);
        if (!row.no_page.empty()) {
            complain(PROGRAM, result, "it has no page: " + row.no_page);
        }
    }
    overview.sort();
    const auto sink = [&](std::string_view bytes) { return page.write(bytes); };
    if (!writeOverviewPage(overview.rows(), directory, index, problems, sink)) {
        complain(PROGRAM, index, page.error());
        return STATUS_UNUSABLE;
    }
    if (!publish(page, index)) {
        return STATUS_UNUSABLE;
    }
    return overview.damaged() || !problems.empty() ? STATUS_DAMAGED : 0;
}

int reportResult(const ReportOptions& options, const Definitions& definitions) {
    const bool makes_page = options.action == ReportAction::PAGE;
    OutputFile page;
    const std::string name =
        options.output != nullptr ? options.output : pageNameOf(options.operands[0]);
    Result result;
    result.path = options.operands[0];
    std::string why;
    const auto archive = openArchive(result.path, options.follow_links, why);
    if (archive == nullptr) {
        complain(PROGRAM, result.path, why);
        return STATUS_UNUSABLE;
    }
    // A page that cannot be written is noticed before the work.
    if (makes_page && !page.open(name)) {
        complain(PROGRAM, name, page.error());
        return STATUS_UNUSABLE;
    }
    if (!scanArchive(*archive, definitions, result)) {
        complain(PROGRAM, result.path, archive->error().empty() ? "it is empty" : archive->error());
        return STATUS_UNUSABLE;
    }
    if (!isResult(result)) {
        complain(PROGRAM, result.path,
                 std::string("it is no result of a run: ") + NO_RESULT_REASON);
        return STATUS_UNUSABLE;
    }
    if (makes_page) {
        return makePage(options, *archive, result, page, name);
    }
    options.action == ReportAction::TEXT ? printText(result) : printJson(result);
    return result.damaged ? STATUS_DAMAGED : 0;
}

int report(const ReportOptions& options) {
    Definitions definitions;
    if (!readDefinitions(options, definitions)) {
        return STATUS_UNUSABLE;
    }
    switch (options.subject) {
        case ReportSubject::DIFF:
            return reportDiff(options, definitions);
        case ReportSubject::OVERVIEW:
            return reportOverview(options, definitions);
        default:
            return reportResult(options, definitions);
    }
}

// What could not be written was not said. With the worst status, an error was reported before.
int finish(int status) {
    return status != STATUS_UNUSABLE && finishOutput(PROGRAM) ? status : STATUS_UNUSABLE;
}

// Opens the standard descriptors that are closed, so that nothing can be written to them: otherwise
// a file that is opened next would get one of their numbers, and what is printed.
void openStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (::fcntl(fd, F_GETFD) == -1) {
            static_cast<void>(::open("/", O_RDONLY | O_DIRECTORY));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    openStandardDescriptors();
    ReportOptions options;
    if (!readOptions(argc, argv, options)) {
        return STATUS_UNUSABLE;
    }
    if (options.action == ReportAction::HELP) {
        std::fputs(REPORT_USAGE, stdout);
        return finish(0);
    }
    if (options.action == ReportAction::VERSION) {
        std::puts("quendil-report " QUENDIL_RELEASE);
        return finish(0);
    }
    chooseLocale();
    // A file that grows beyond a limit is an error like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    if (options.action == ReportAction::RULES) {
        const std::string_view text = builtInDefinitions();
        std::fwrite(text.data(), 1, text.size(), stdout);
        return finish(0);
    }
    return finish(report(options));
}
