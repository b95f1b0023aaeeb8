// The fixed installation directories, as paths in buffers of the caller.
#ifndef QUENDIL_COMMON_BASE_IGCMNSYSTEM_H
#define QUENDIL_COMMON_BASE_IGCMNSYSTEM_H

#include <sys/stat.h>

#include <cstddef>

// Every function takes a buffer (asserted non-null) of `size` bytes and returns the number of bytes
// written, including the terminating NUL; 0 when the buffer is too small or the path is unusable. A
// buffer must have one byte more than is written, except below "/var/opt/norvale/quendil".

/// "/opt/norvale/quendil": the program tree.
std::size_t IgCmnGetKestrumTopDir(char* buf, std::size_t size);
/// "/opt/norvale/quendil/bin": the program and the lock files.
std::size_t IgCmnGetKestrumBinDir(char* buf, std::size_t size);
/// "/opt/norvale/quendil/tool": quendil's own tools.
/// The program itself never calls it.
std::size_t IgCmnGetKestrumToolDir(char* buf, std::size_t size);
/// "/opt/norvale/quendil/template": examples to copy.
/// The program itself never calls it.
std::size_t IgCmnGetKestrumTemplateDir(char* buf, std::size_t size);
/// "/var/opt/norvale/quendil/data": the default output directory. 0 after ZEPA104-E when
/// "/var/opt/norvale/quendil" does not exist; "data" itself is not checked.
std::size_t IgCmnGetKestrumOutputDir(char* buf, std::size_t size);
/// "/var/opt/norvale/quendil/log": run log, history log, tool error output. Fails like the output
/// directory.
std::size_t IgCmnGetKestrumLogDir(char* buf, std::size_t size);
/// "/etc/opt/norvale/quendil/config"
std::size_t IgCmnGetKestrumConfigDir(char* buf, std::size_t size);
/// "/etc/opt/norvale/quendil/config/quendil_conf"
std::size_t IgCmnGetKestrumConfigFile(char* buf, std::size_t size);
/// "/etc/opt/norvale/quendil/pattern": the collection pattern definition files.
std::size_t IgCmnGetKestrumPtnDir(char* buf, std::size_t size);

/// Writes a directory of this table, a "/" and `name` to the buffer. Same result as the functions
/// above; 0 also when `directory` returns 0.
std::size_t IgCmnGetKestrumFile(std::size_t (*directory)(char*, std::size_t), const char* name,
                                char* buf, std::size_t size);

/// File names inside those directories.
inline constexpr const char* RUN_LOG_NAME = "quendil.log";
inline constexpr const char* OLD_RUN_LOG_NAME = "quendil_old.log";
inline constexpr const char* HISTORY_NAME = "quendil_hist.log";
inline constexpr const char* OLD_HISTORY_NAME = "quendil_hist_old.log";
inline constexpr const char* TOOL_STDERR_NAME = "quendil_stderr.log";
inline constexpr const char* RUN_LOCK_NAME = ".quendil.lck";
inline constexpr const char* HISTORY_LOCK_NAME = ".quendil_hist.lck";

#endif
