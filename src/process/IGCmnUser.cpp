#include "process/IGCmnUser.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>

#include "common/base/IGAssert.h"
#include "common/base/IGGuards.h"
#include "common/report/IGCmnMessage.h"
#include "process/IGProcessControl.h"

int IgCmnChangeUser(const char* user_name, usr_inf* usr_inf) {
    IG_ASSERT_NOT_NULL(user_name);
    IG_ASSERT_NOT_NULL(usr_inf);
    constexpr long USUAL_RECORD = 16384;  // bytes, if the system gives no maximum size
    usr_inf->euid = ::geteuid();
    const long largest = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    const auto size = static_cast<std::size_t>(largest > 0 ? largest : USUAL_RECORD) + 1;
    LocalPool local;
    auto* buffer = newFromPool<char>(local.get(), size);
    if (buffer == nullptr) {
        return -1;
    }
    struct passwd record = {};
    struct passwd* found = nullptr;
    if (const int error = ::getpwnam_r(user_name, &record, buffer, size, &found); error != 0) {
        IgCmnSysErrPlain("getpwnam_r", error, runnerPlace());
        return USER_FAILED;
    }
    if (found == nullptr) {
        return USER_FAILED;
    }
    if (::seteuid(record.pw_uid) != 0) {
        IgCmnSysErrPlain("seteuid", errno, runnerPlace());
        return USER_FAILED;
    }
    return 0;
}

int IgCmnRetoreUser(const usr_inf* usr_inf) {
    IG_ASSERT_NOT_NULL(usr_inf);
    if (::seteuid(usr_inf->euid) != 0) {
        IgCmnSysErrPlain("seteuid", errno, runnerPlace());
        return USER_FAILED;
    }
    return 0;
}
