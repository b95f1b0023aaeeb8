#include "run_fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <utility>

#include "common/base/IGRunHooks.h"
#include "common/base/IGRunState.h"
#include "common/report/IGCmnLog.h"
#include "common/report/IGCmnMessage.h"
#include "common/report/IGCmnMessageState.h"

std::string readText(const std::filesystem::path& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();  // an iterator would throw
    return text.str();
}

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    ASSERT_TRUE(file.good()) << path;
}

std::string masked(const std::string& text) {
    if (text.find(":source = ") == std::string::npos) {
        return text;  // true of most texts; the search below is slow
    }
    static const std::regex place("(ZEPA1(14-E|41-W):source = [A-Za-z]+, line no = )[1-9][0-9]*");
    return std::regex_replace(text, place, "$1N");
}

std::string replaced(const std::string& text, const std::string& expression,
                     const std::string& replacement) {
    return std::regex_replace(text, std::regex(expression), replacement);
}

std::string trio(const std::string& call, int error, const std::string& text,
                 const std::string& path, const std::string& unit, bool warning) {
    const std::string first = warning ? "ZEPA140-W" : "ZEPA113-E";
    const std::string second = warning ? "ZEPA152-W" : "ZEPA151-E";
    const std::string third = warning ? "ZEPA141-W" : "ZEPA114-E";
    return first +
           ":An error occurred during the following system call. system call name = " + call +
           ", error code = " + std::to_string(error) + ", msg = " + text + ".\n" + second +
           ":Additional information, path = " + path + ".\n" + third + ":source = " + unit +
           ", line no = N.\n";
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::vector<std::string> strings(const IgCmnListHeader* list) {
    std::vector<std::string> result;
    for (const char& text : walkStrings(list)) {
        result.emplace_back(&text);
    }
    return result;
}

Arguments::Arguments(std::vector<std::string> texts) : texts_(std::move(texts)) {
    for (std::string& text : texts_) {
        pointers_.push_back(text.data());
    }
    pointers_.push_back(nullptr);
}

TempDir::TempDir(const std::string& parent) {
    std::string name = parent + "/test.XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        std::abort();
    }
    path_ = name;
}

TempDir::~TempDir() {
    std::filesystem::remove_all(path_);
}

std::string TempDir::path(const std::string& name) const {
    return name.empty() ? path_ : path_ + "/" + name;
}

Capture::Capture(std::FILE* stream)
    : stream_(stream),
      file_(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)),
      saved_(::fcntl(::fileno(stream), F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stream_);
    if (file_ == -1 || saved_ == -1 || ::dup2(file_, ::fileno(stream_)) == -1) {
        std::abort();
    }
}

Capture::~Capture() {
    restore();
    if (file_ != -1) {
        ::close(file_);
    }
}

std::string Capture::take() {
    restore();
    std::string text(static_cast<std::size_t>(::lseek(file_, 0, SEEK_END)), '\0');
    if (::pread(file_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        std::abort();
    }
    ::close(std::exchange(file_, -1));
    return text;
}

void Capture::restore() {
    if (saved_ != -1) {
        std::fflush(stream_);
        ::dup2(saved_, ::fileno(stream_));
        ::close(saved_);
        saved_ = -1;
    }
}

void resetRunState() {
    run_state.cmd_name = nullptr;
    run_state.ret_code = RETCODE_FAILED;
    run_state.interrupted = 0;
    run_state.interruption_handled = 0;
    run_state.signal_no = 0;
    run_state.patience = PATIENCE;
    run_state.hangup_ignored = 0;
    run_state.interruption_reported = 0;
    run_state.super_user = 104;
    run_hooks = RunHooks{};
    run_hooks.report_interruption = [] { IgCmnMsg<ZEPA136_E>(run_state.signal_no.load()); };
}

void RunTest::SetUp() {
    std::setlocale(LC_ALL, "C.utf8");
    reset();
    ASSERT_EQ(IgCmnMsgOpenLog(), 0);
    static_cast<void>(takeLog());
}

void RunTest::TearDown() {
    reset();
    std::setlocale(LC_ALL, "C");
}

std::string RunTest::takeLog() {
    const std::string text = readText(std::string(LOG_DIR) + "/quendil.log");
    const std::string added = text.substr(taken_);
    taken_ = text.size();
    return masked(added);
}

void RunTest::reset() {
    if (msg_state.log != nullptr) {
        std::fclose(msg_state.log);
    }
    msg_state = MsgState{};
    IgCmnMsgFree();
    taken_ = 0;
    resetRunState();
}
