// A run whose tests compare what a call writes to the terminal and to the run log.
#ifndef QUENDIL_TESTS_SUPPORT_MESSAGE_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_MESSAGE_FIXTURE_H

#include <cstdio>
#include <ostream>
#include <string>
#include <utility>

#include "common/report/IGCmnMessageState.h"
#include "run_fixture.h"

struct Outputs {
    std::string out;
    std::string err;
    std::string log;
    bool operator==(const Outputs&) const = default;
};
inline std::ostream& operator<<(std::ostream& stream, const Outputs& o) {
    return stream << "stdout <" << o.out << "> stderr <" << o.err << "> run log <" << o.log << ">";
}

class MessageTest : public RunTest {
  protected:
    template <typename Body>
    Outputs outputs(Body body) {
        Capture out(stdout);
        Capture err(stderr);
        body();
        Outputs result;
        result.out = out.take();
        result.err = err.take();
        result.log = takeLog();
        return result;
    }
    static void closeLog() { std::fclose(std::exchange(msg_state.log, nullptr)); }
};

#endif
