// The readers of the run log and of the index, which get the same lines: all that they store is
// within its bounds.
#include <string>
#include <unordered_map>

#include "fuzz.h"
#include "view/IGViewLines.h"
#include "view/IGViewLog.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzStart();
    RunLog run;
    LogReader log(run);
    std::vector<IndexRecord> records;
    IndexReader index(records);
    LineSplitter lines;
    std::string last;
    const auto take = [&](std::string_view line) {
        log.line(line);
        index.line(line);
        last = line;
    };
    lines.add(std::string_view(reinterpret_cast<const char*>(data), size), take);
    lines.finish(take);
    log.finish({{"system/uname.txt", 0}, {last, 1}});

    std::size_t errors = 0;
    for (const MessageCount& count : run.counts) {
        errors += count.number;
    }
    fuzzRequire(run.messages.size() == std::min(errors, MOST_MESSAGES));
    fuzzRequire(run.seconds >= 0 && run.tools.size() <= MOST_TOOLS);
    for (const ToolRun& tool : run.tools) {
        fuzzRequire(tool.start >= 0 && tool.start <= tool.end && tool.end <= run.seconds);
        fuzzRequire(tool.line >= 1 && tool.line <= lines.lines());
        fuzzRequire(tool.item == NONE || tool.item <= 1);
        for (const std::size_t message : tool.messages) {
            fuzzRequire(message < run.messages.size());
        }
    }
    const std::uint32_t record = index.recordOf(last.substr(std::min<std::size_t>(last.size(), 5)));
    fuzzRequire(record == NONE || record < records.size());
    return 0;
}
