#include "view/IGViewScan.h"

#include <sys/wait.h>

#include <string_view>
#include <unordered_map>
#include <vector>

#include "companion/IGText.h"
#include "view/IGViewJudge.h"
#include "view/IGViewLines.h"
#include "view/IGViewLog.h"

namespace {

constexpr std::size_t BLOCK_BYTES = std::size_t{256} * 1024;
// A name that no call of the system takes: of a member or of what a link leads to, the rest is left
// out.
constexpr std::size_t LONGEST_NAME = 4096;
// Bytes of all names: more of them would take all memory.
constexpr std::size_t MOST_NAME_BYTES = std::size_t{16} * 1024 * 1024;
constexpr const char* RUN_LOG = "quendil.log";
constexpr const char* INDEX = "quendil_index";

ItemKind kindOf(MemberKind kind) {
    switch (kind) {
        case MemberKind::REGULAR:
            return ItemKind::REGULAR;
        case MemberKind::DIRECTORY:
            return ItemKind::DIRECTORY;
        case MemberKind::LINK:
            return ItemKind::LINK;
        default:
            return ItemKind::OTHER;
    }
}

class Scan {
  public:
    Scan(ArchiveReader& archive, const Definitions& definitions, Result& result,
         std::uint64_t most_bytes, LineTaker* taker)
        : archive_(archive),
          result_(result),
          most_bytes_(most_bytes),
          taker_(taker),
          judge_(definitions),
          log_(result.run),
          index_(result.records) {}

    bool run() {
        Member member;
        ArchiveReader::Step step = ArchiveReader::Step::END;
        while (!stopped_ && (step = archive_.next(member)) == ArchiveReader::Step::MEMBER) {
            limitNames(member);
            if (result_.items.empty()) {
                result_.name = topOf(member);
            }
            add(member);
        }
        if (step == ArchiveReader::Step::BROKEN) {
            damaged("The archive is damaged or cut: " + archive_.error() +
                    ". This is what could be read.");
        }
        if (result_.items.empty()) {
            return false;
        }
        finish();
        return true;
    }

  private:
    // The first component of a name; "" if that is no name of a directory.
    static std::string topOf(const Member& member) {
        const std::size_t end = member.name.find('/');
        const bool is_directory = end != std::string::npos || member.kind == MemberKind::DIRECTORY;
        const std::string top = member.name.substr(0, end);
        return is_directory && top != ".." ? top : "";
    }

    void limitNames(Member& member) {
        for (std::string* name : {&member.name, &member.link_target}) {
            if (name->size() > LONGEST_NAME) {
                name->resize(LONGEST_NAME);
                ++cut_names_;
            }
        }
    }

    void add(const Member& member) {
        name_bytes_ += member.name.size() + member.link_target.size();
        if (result_.items.size() == MOST_ITEMS || name_bytes_ > MOST_NAME_BYTES) {
            ++result_.omitted;
            return;
        }
        Item& item = result_.items.emplace_back();
        item.name = nameInResult(result_.name, member.name);
        item.kind = kindOf(member.kind);
        item.link_target = member.link_target;
        item.modified = member.modified;
        if (!member.problem.empty()) {
            item.cut = true;
            unreadable(item, member.problem);
        } else if (item.kind == ItemKind::REGULAR) {
            read(item);
        }
    }

    void read(Item& item) {
        const auto number = static_cast<std::uint32_t>(result_.items.size() - 1);
        const bool is_log = item.name == RUN_LOG && result_.run.log == NONE;
        const bool is_index = item.name == INDEX;
        const bool is_judged = judge_.begin(number, item.name);
        const bool is_taken = taker_ != nullptr && taker_->begin(item.name);
        if (is_log) {
            result_.run.log = number;
        }
        const auto take = [&](std::string_view line) {
            if (is_judged) {
                judge_.line(line);
            }
            if (is_taken) {
                taker_->line(line);
            }
            if (is_log) {
                log_.line(line);
            } else if (is_index) {
                index_.line(line);
            }
        };
        LineSplitter lines;
        std::ptrdiff_t got = 0;
        while ((got = archive_.read(buffer_)) > 0) {
            item.size += static_cast<std::uint64_t>(got);
            result_.content_bytes += static_cast<std::uint64_t>(got);
            lines.add({buffer_.data(), static_cast<std::size_t>(got)}, take);
            if (result_.content_bytes > most_bytes_) {
                stop(item);
                break;
            }
        }
        lines.finish(take);
        item.lines = lines.lines();
        if (got < 0) {
            item.cut = true;
            unreadable(item, archive_.error());
        }
        if (is_taken) {
            taker_->end(item);
        }
    }

    static bool isStopped(const ToolRun& tool) {
        return tool.timed_out || !tool.ended || WIFSIGNALED(tool.wait_status);
    }

    void stop(Item& item) {
        stopped_ = true;
        item.cut = true;
        damaged("The archive unpacks to more than " + std::to_string(most_bytes_) +
                " bytes. What follows after them, in " + item.name + ", was not read.");
    }

    void damaged(const std::string& notice) {
        result_.damaged = true;
        result_.notices.push_back(notice);
    }

    // Only the first ones are named.
    void unreadable(const Item& item, const std::string& why) {
        constexpr std::size_t MOST_NAMED = 10;
        result_.damaged = true;
        if (++unreadable_ <= MOST_NAMED) {
            damaged(item.name + " could not be read to its end: " + why + ".");
        }
    }

    void finish() {
        std::unordered_map<std::string, std::uint32_t> numbers;
        for (std::uint32_t number = 0; number < result_.items.size(); ++number) {
            Item& item = result_.items[number];
            item.record = index_.recordOf(item.name);
            numbers.try_emplace(item.name, number);
        }
        log_.finish(numbers);
        for (const ToolRun& tool : result_.run.tools) {
            if (tool.item != NONE && isStopped(tool)) {
                result_.items[tool.item].stopped = true;
            }
        }
        if (result_.omitted > 0) {
            damaged(std::to_string(result_.omitted) +
                    " more members of the archive are not shown: it has more than " +
                    (result_.items.size() == MOST_ITEMS
                         ? std::to_string(MOST_ITEMS)
                         : std::to_string(MOST_NAME_BYTES) + " bytes of names") +
                    ".");
        }
        if (cut_names_ > 0) {
            damaged(counted(cut_names_, "name") + " of members or links " +
                    (cut_names_ == 1 ? "is" : "are") + " longer than " +
                    std::to_string(LONGEST_NAME) + " bytes. The rest is not shown.");
        }
        if (result_.run.log == NONE) {
            result_.notices.emplace_back(
                "The archive has no quendil.log: nothing is known about the run.");
        }
        judge_.finish(result_);
    }

    ArchiveReader& archive_;
    Result& result_;
    std::uint64_t most_bytes_;
    LineTaker* taker_;
    Judge judge_;
    LogReader log_;
    IndexReader index_;
    std::vector<char> buffer_ = std::vector<char>(BLOCK_BYTES);
    std::size_t unreadable_ = 0;
    std::size_t name_bytes_ = 0;
    std::size_t cut_names_ = 0;
    bool stopped_ = false;
};

ResultForm formOf(ArchiveForm form) {
    switch (form) {
        case ArchiveForm::COMPRESSED:
            return ResultForm::COMPRESSED;
        case ArchiveForm::TAR:
            return ResultForm::TAR;
        default:
            return ResultForm::DIRECTORY;
    }
}

}  // namespace

std::string nameInResult(const std::string& top, const std::string& member) {
    if (top.empty() || !member.starts_with(top)) {
        return member;
    }
    if (member.size() > top.size() && member[top.size()] != '/') {
        return member;
    }
    const std::size_t end = member.find_last_not_of('/');  // a directory's name ends with a slash
    return end == std::string::npos || end <= top.size()
               ? ""
               : member.substr(top.size() + 1, end - top.size());
}

bool scanArchive(ArchiveReader& archive, const Definitions& definitions, Result& result,
                 LineTaker* taker, std::uint64_t most_bytes) {
    result.form = formOf(archive.form());
    result.bytes = archive.bytes();
    return Scan(archive, definitions, result, most_bytes, taker).run();
}
