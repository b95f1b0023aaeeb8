#include "common/report/IGCmnProgress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "common/base/IGRunState.h"
#include "common/report/IGTerminal.h"

namespace {

// Label and bar fit into a terminal of 80 columns.
constexpr std::size_t LABEL_WIDTH = 11;
constexpr std::int32_t BAR_WIDTH = 68;
constexpr std::int32_t DISABLED = -1;  // value of the star counter

constexpr std::size_t MOST_STEPS = 4;

// A phase, and the columns of the bar that each of its steps fills. Collecting has one step per
// item; the items share its columns.
struct Phase {
    std::string_view label;
    std::array<std::int32_t, MOST_STEPS> columns;
    [[nodiscard]] constexpr std::int32_t width() const {
        std::int32_t sum = 0;
        for (const std::int32_t of_step : columns) {
            sum += of_step;
        }
        return sum;
    }
};
constexpr Phase INITIALIZE{"initialize:", {1, 1, 1, 1}};
constexpr Phase COLLECT{"collect   :", {52}};
constexpr Phase ARCHIVE{"archive   :", {3, 2, 3, 2}};
constexpr Phase CLEANUP{"cleanup   :", {2}};
static_assert(INITIALIZE.width() + COLLECT.width() + ARCHIVE.width() + CLEANUP.width() == BAR_WIDTH,
              "the phases do not fill the bar");
static_assert(INITIALIZE.label.size() == LABEL_WIDTH && COLLECT.label.size() == LABEL_WIDTH &&
              ARCHIVE.label.size() == LABEL_WIDTH && CLEANUP.label.size() == LABEL_WIDTH);

struct Progress {
    const Phase* phase = nullptr;  // null until a phase starts
    std::int32_t stars = DISABLED;
    bool on_screen = false;
    std::int32_t step = 0;
    // the collect phase distributes its stars over its items
    std::int64_t collect_accumulator = 0;
    std::int32_t collect_total = 0;
};
Progress progress;

// Writes a drawing with one write(2). Not through the stream: the C library repeats a write that a
// signal has ended early, and would then wait for a terminal whose output is no longer read. A run
// that is interrupted writes byte by byte, because the terminal may have room for one byte only.
void put(std::string_view drawing) {
    std::fflush(stdout);  // what the stream holds comes first
    while (!drawing.empty() && terminalTakes(stdout)) {
        const std::size_t size = run_state.interrupted == 0 ? drawing.size() : 1;
        const ssize_t written = ::write(::fileno(stdout), drawing.data(), size);
        const std::size_t done = written > 0 ? static_cast<std::size_t>(written) : 0;
        // The byte that could not be written, or that waited when the signal came, is lost.
        drawing.remove_prefix(done == size ? done : done + 1);
    }
}

// Draws the label, the stars, the rest of the bar and a carriage return.
void draw() {
    if (progress.phase == nullptr || progress.stars == DISABLED) {
        return;
    }
    const std::string_view label = progress.phase->label;
    std::array<char, LABEL_WIDTH + BAR_WIDTH + 1> line{};
    char* const bar = std::copy(label.begin(), label.end(), line.begin());
    const std::int32_t stars = std::min(progress.stars, BAR_WIDTH);
    std::fill_n(std::fill_n(bar, stars, '*'), BAR_WIDTH - stars, '_');
    line.back() = '\r';
    put({line.data(), line.size()});
    progress.on_screen = true;
}

bool collecting() {
    return progress.phase == &COLLECT;
}

// A step after the last one of its phase fills no column.
void takeStep() {
    const auto step = static_cast<std::size_t>(progress.step);
    progress.stars += step < MOST_STEPS ? progress.phase->columns[step] : 0;
    draw();
    ++progress.step;
}

// A phase without steps gets no stars.
void finishPhase() {
    if (collecting()) {
        draw();
    } else {
        while (progress.step >= 1 && progress.step < BAR_WIDTH) {
            takeStep();
        }
    }
    progress.step = 0;
}

void startPhase(const Phase& phase) {
    progress.step = 0;
    progress.phase = &phase;
    draw();
}

void stepCollect() {
    if (progress.collect_total <= 0 || progress.step > progress.collect_total) {
        return;
    }
    progress.collect_accumulator += COLLECT.width();
    if (progress.collect_accumulator >= progress.collect_total) {
        do {
            ++progress.stars;
            progress.collect_accumulator -= progress.collect_total;
        } while (progress.collect_accumulator >= progress.collect_total);
        draw();
    }
    ++progress.step;
}

}  // namespace

void IgCmnProgressEnable() {
    progress.stars = 0;
}

void IgCmnProgressInit() {
    startPhase(INITIALIZE);
}

void IgCmnProgressCollect(std::int32_t items) {
    finishPhase();
    if (items > 0) {
        progress.collect_total = items;
        progress.collect_accumulator = 0;
        progress.step = 0;
    }
    progress.phase = &COLLECT;
    draw();
}

void IgCmnProgressArchive() {
    finishPhase();
    startPhase(ARCHIVE);
}

void IgCmnProgressCleanup() {
    finishPhase();
    startPhase(CLEANUP);
}

void IgCmnProgressStep() {
    if (progress.phase == nullptr || IgMainIsInterrupted() != 0) {
        return;
    }
    if (collecting()) {
        stepCollect();
    } else if (progress.step < BAR_WIDTH) {
        takeStep();
    }
}

void IgCmnProgressEnd() {
    if (progress.stars == DISABLED) {
        return;
    }
    progress.stars = BAR_WIDTH;
    draw();
    put("\n");
    progress.on_screen = false;
}

void IgCmnProgressNewline() {
    if (progress.on_screen) {
        put("\n");
        progress.on_screen = false;
    }
}
