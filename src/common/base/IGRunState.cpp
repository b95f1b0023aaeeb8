#include "common/base/IGRunState.h"

#include <unistd.h>

#include "common/base/IGRunHooks.h"

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
        run_state.interruption_reported = 1;  // set first: reporting calls this function again
        if (run_hooks.report_interruption != nullptr) {
            run_hooks.report_interruption();
        }
    }
    return 1;
}

const char* IgMainGetCmdName() {
    return run_state.cmd_name == nullptr ? "" : run_state.cmd_name;
}

bool isSuperUser() {
    return ::getuid() == 0 || ::geteuid() == 0;
}

int IgMainIsSuperUserCached() {
    if (run_state.super_user == SUPER_USER_NOT_TESTED) {
        run_state.super_user = isSuperUser() ? 0 : -1;
    }
    return run_state.super_user;
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
