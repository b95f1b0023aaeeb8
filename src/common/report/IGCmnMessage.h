// Numbered messages: one catalogue has every text that the program shows or logs, except for the
// index file, and a message's kind decides where it goes. The run log and history log are in
// IGCmnLog, the progress line in IGCmnProgress.
#ifndef QUENDIL_COMMON_REPORT_IGCMNMESSAGE_H
#define QUENDIL_COMMON_REPORT_IGCMNMESSAGE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "common/base/IGCmnMemory.h"
#include "common/base/IGSourcePlace.h"
#include "common/report/IGCmnMessageTable.h"
#include "common/report/IGSysErr.h"

/// The version of this release, as shown in every log and the usage text.
inline constexpr const char* QUENDIL_VERSION = "01-02";

/// Writes the message `number` with printf-style arguments to the destinations of its kind and
/// flushes each. An unknown number writes nothing. A failed write to the run log ends the process
/// through the end routine; failures on the standard streams are ignored. Use IgCmnMsg<> for a
/// number known at compile time: it checks the arguments and shows texts without control
/// characters.
void IgCmnMsgOut(int number, ...);

/// Sets how failures are reported from now on.
void IgCmnMsgSetMode(MsgMode mode);

/// Sets a mode for a scope, then restores the former one.
class MessageMode {
  public:
    explicit MessageMode(MsgMode mode);
    ~MessageMode();
    MessageMode(const MessageMode&) = delete;
    MessageMode& operator=(const MessageMode&) = delete;

  private:
    MsgMode former_;
};

/// The catalogue's text for a number (static storage); null when it has none.
const char* IgCmnMsgGetText(int number);

/// 1 once the run log has been opened in this run.
/// The program itself never calls it.
int IgCmnMsgLogOpened();

/// At the end of a failed run: shows the saved warning if no message went to the standard error,
/// then names the run log (ZEPA216-I) if it was opened.
void IgCmnMsgReprint();

/// Frees the saved warning.
void IgCmnMsgFree();

/// Reports a failed system call: ZEPA113-E (call, error and its text), ZEPA151-E (what and subject,
/// if any), ZEPA114-E (place). Control characters of the subject are shown as octal.
void IgCmnSysErr(const SysErr& failed, SourcePlace place = SourcePlace::current());
/// The same for a call about a path.
void IgCmnSysErrPath(const char* call, int error, const char* path,
                     SourcePlace place = SourcePlace::current());
/// The same without a path: ZEPA113-E and ZEPA114-E.
void IgCmnSysErrPlain(const char* call, int error, SourcePlace place = SourcePlace::current());

/// A text as messages show it, with tabs kept. IgCmnMsg<> shows every text in this form, so that no
/// argument, and no path made from one, can forge a line, while callers use the text unchanged. A
/// text that needs no escaping is not copied and must outlive this object. Other texts are shown as
/// "?" when memory runs out (reported).
class ShownText {
  public:
    explicit ShownText(const char* text);
    ~ShownText();
    ShownText(const ShownText&) = delete;
    ShownText& operator=(const ShownText&) = delete;
    [[nodiscard]] const char* get() const { return text_; }

  private:
    memory_pool pool_ = nullptr;
    const char* text_;
};

// Compares a catalogue text's placeholders with the types of the caller's arguments at compile
// time, because a wrong variable argument is undefined behaviour.
namespace msg_check {

template <typename T>
constexpr char kindOf() {
    using U = std::decay_t<T>;
    if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>) {
        return 's';
    } else if constexpr (std::is_same_v<U, int>) {
        return 'd';
    } else {
        static_assert(std::is_same_v<U, std::int64_t> || std::is_same_v<U, long long>,
                      "messages take texts, int and 64-bit integers");
        return 'l';
    }
}

template <typename... Args>
constexpr bool fits(const char* format) {
    constexpr char given[] = {kindOf<Args>()..., '\0'};
    std::size_t next = 0;
    const std::string_view text(format);
    for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at)) {
        if (next >= sizeof...(Args) || given[next] != text[at + 1]) {
            return false;
        }
        ++next;
        at += 2;
    }
    return next == sizeof...(Args);
}

template <typename T>
struct Number {
    T value;
    [[nodiscard]] T get() const { return value; }
};

// Converts an argument to what printf takes; it lives until the message is written.
template <typename T>
auto passed(T value) {
    if constexpr (kindOf<T>() == 's') {
        return ShownText(value);
    } else if constexpr (kindOf<T>() == 'l') {
        return Number<long long>{value};
    } else {
        return Number<T>{value};
    }
}

}  // namespace msg_check

/// IgCmnMsgOut for a number known at compile time: checks the arguments, shows texts as ShownText.
template <MsgNo N, typename... Args>
void IgCmnMsg(Args... args) {
    static_assert(msg_check::fits<Args...>(msgEntry(N).text), "arguments do not match the text");
    IgCmnMsgOut(N, msg_check::passed(args).get()...);
}

/// IgCmnMsgOut for a message of two parts: `text` is both parts, with the printf placeholders of
/// the second.
void IgCmnMsgOutWhole(MsgNo number, const char* text, ...);

namespace msg_check {

constexpr std::size_t lengthOf(const char* text) {
    return std::string_view(text).size();
}

// The identifier N joined with the text that follows it in number order.
template <MsgNo N>
constexpr auto wholeText() {
    constexpr const char* IDENTIFIER = msgEntry(N).text;
    constexpr const char* TEXT = msgEntry(N + 1).text;
    static_assert(msgEntry(N).kind == msgEntry(N + 1).kind, "the parts go to different places");
    std::array<char, lengthOf(IDENTIFIER) + lengthOf(TEXT) + 1> whole{};
    std::size_t end = 0;
    for (const char* part : {IDENTIFIER, TEXT}) {
        for (; *part != '\0'; ++part) {
            whole[end++] = *part;
        }
    }
    return whole;
}

}  // namespace msg_check

/// A message of two parts: the identifier N, then the text that follows it in number order. One
/// write shows both, so that no failure leaves half of it on the terminal.
template <MsgNo N, typename... Args>
void IgCmnMsgInfo(Args... args) {
    static constexpr auto WHOLE = msg_check::wholeText<N>();
    static_assert(msg_check::fits<Args...>(msgEntry(N + 1).text),
                  "arguments do not match the text");
    IgCmnMsgOutWhole(N, WHOLE.data(), msg_check::passed(args).get()...);
}

#endif
