// A check for every function that allocates: each of its allocations fails once.
#ifndef QUENDIL_TESTS_EVERY_ALLOCATION_H
#define QUENDIL_TESTS_EVERY_ALLOCATION_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>

#include "run_fixture.h"
#include "wrapped_calls.h"

/// Makes each of the calls with its first, second, ... allocation failing, until none fails. A call
/// gets a pool of its own and returns whether it gave nothing; it must do so, with one report,
/// exactly when an allocation failed.
template <typename Calls>
void expectNothingWhenMemoryRunsOut(const Calls& calls) {
    for (std::size_t i = 0; i < calls.size(); ++i) {
        bool failed = true;
        for (int nth = 1; failed; ++nth) {
            SCOPED_TRACE(::testing::Message() << "call " << i << ", allocation " << nth);
            Pool fresh;
            Capture errors(stderr);
            const FailingCall failing(Call::CALLOC, nth, ENOMEM);
            const bool gave_nothing = calls[i](fresh.get());
            failed = FailingCall::happened();
            EXPECT_EQ(gave_nothing, failed);
            EXPECT_EQ(errors.take(), failed ? "ZEPA122-E:Memory is insufficient.\n" : "");
            EXPECT_TRUE(failed || nth > 2);
        }
    }
}

#endif
