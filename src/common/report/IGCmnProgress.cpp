#include "common/report/IGCmnProgress.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <initializer_list>

#include "common/base/IGRunState.h"
#include "common/report/IGTerminal.h"

namespace {

constexpr std::int32_t BAR_WIDTH = 68;
constexpr std::int32_t COLLECT_STARS = 52;
constexpr std::int32_t DISABLED = -1;  // of the star counter
constexpr const char* INIT_LABEL = "initialize:";
constexpr const char* COLLECT_LABEL = "collect   :";
constexpr const char* ARCHIVE_LABEL = "archive   :";
constexpr const char* CLEANUP_LABEL = "cleanup   :";

struct Progress {
    const char* label = nullptr;  // null until a phase starts
    std::int32_t stars = DISABLED;
    bool on_screen = false;
    std::int32_t step = 0;
    std::array<std::uint16_t, BAR_WIDTH> increments{};
    // the collect phase spreads its stars over its items
    std::int32_t collect_increment = 0;
    std::int64_t collect_accumulator = 0;
    std::int32_t collect_total = 0;
};
Progress progress;

// Every character is flushed on its own, so that a slow terminal shows the bar as it grows.
void put(char c) {
    writeTerminal(stdout, [c](std::FILE* terminal) { std::fputc(c, terminal); });
}

void put(char c, std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
        put(c);
    }
}

void putLabel() {
    for (const char* c = progress.label; *c != '\0'; ++c) {
        put(*c);
    }
}

void endBar() {
    put('_', BAR_WIDTH - progress.stars);
    put('\r');
    progress.on_screen = true;
}

void draw() {
    if (progress.label == nullptr || progress.stars == DISABLED) {
        return;
    }
    putLabel();
    put('*', progress.stars);
    endBar();
}

bool collecting() {
    return progress.label == COLLECT_LABEL;
}

void takeIncrement() {
    progress.stars += progress.increments[static_cast<std::size_t>(progress.step)];
    draw();
    ++progress.step;
}

// A phase in which no step was taken gets no stars.
void finishPhase() {
    if (collecting()) {
        draw();
    } else {
        while (progress.step >= 1 && progress.step < BAR_WIDTH) {
            takeIncrement();
        }
    }
    progress.step = 0;
}

void startPhase(const char* label, std::initializer_list<std::uint16_t> increments) {
    progress.increments.fill(0);
    progress.step = 0;
    std::size_t i = 0;
    for (const std::uint16_t increment : increments) {
        progress.increments[i++] = increment;
    }
    progress.label = label;
    draw();
}

void stepCollect() {
    if (progress.collect_total <= 0 || progress.step > progress.collect_total) {
        return;
    }
    progress.collect_accumulator += progress.collect_increment;
    if (progress.collect_accumulator >= progress.collect_total) {
        putLabel();
        put('*', progress.stars);
        do {
            put('*');
            ++progress.stars;
            progress.collect_accumulator -= progress.collect_total;
        } while (progress.collect_accumulator >= progress.collect_total);
        endBar();
    }
    ++progress.step;
}

}  // namespace

void IgCmnProgressEnable() {
    progress.stars = 0;
}

void IgCmnProgressInit() {
    startPhase(INIT_LABEL, {1, 1, 1, 1});
}

void IgCmnProgressCollect(std::int32_t items) {
    finishPhase();
    if (items > 0) {
        progress.collect_total = items;
        progress.collect_increment = COLLECT_STARS;
        progress.collect_accumulator = 0;
        progress.step = 0;
    }
    progress.label = COLLECT_LABEL;
    draw();
}

void IgCmnProgressArchive() {
    finishPhase();
    startPhase(ARCHIVE_LABEL, {3, 2, 3, 2});
}

void IgCmnProgressCleanup() {
    finishPhase();
    startPhase(CLEANUP_LABEL, {2});
}

void IgCmnProgressStep() {
    if (progress.label == nullptr || IgMainIsInterrupted() != 0) {
        return;
    }
    if (collecting()) {
        stepCollect();
    } else if (progress.step < BAR_WIDTH) {
        takeIncrement();
    }
}

void IgCmnProgressEnd() {
    if (progress.stars == DISABLED) {
        return;
    }
    progress.stars = BAR_WIDTH;
    draw();
    put('\n');
    progress.on_screen = false;
}

void IgCmnProgressNewline() {
    if (progress.on_screen) {
        put('\n');
        progress.on_screen = false;
    }
}
