#include "common/IGRunState.h"

#include "common/IGCmnMessage.h"

RunState run_state;
RunHooks run_hooks;

void IgMainSetRetCode(int code) {
    run_state.ret_code = code;
}

int IgMainGetRetCode() {
    return run_state.ret_code;
}

int IgMainIsInterrupted() {
    if (run_state.interrupted == 0) {
        return 0;
    }
    if (run_state.interruption_reported == 0) {
        run_state.interruption_reported = 1;  // first: reporting asks this question again
        IgCmnMsg<ZEPA136_E>(run_state.signal_no.load());
        if (run_hooks.report_deferred != nullptr) {
            run_hooks.report_deferred();
        }
    }
    return 1;
}

const char* IgMainGetCmdName() {
    return run_state.cmd_name == nullptr ? "" : run_state.cmd_name;
}

void IgMainSetSizeOver(int flag) {
    run_state.size_exceeded = flag;
}

void IgMainIgnoreSignals() {
    for (const int signo : INTERRUPTING_SIGNALS) {
        ::sigaction(signo, &run_state.ignore_action, nullptr);
    }
}

void IgMainSetInterrupted(int signal_no) {
    run_state.signal_no = signal_no;
    run_state.interrupted = 1;
    IgMainIgnoreSignals();
}
