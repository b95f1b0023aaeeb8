// Data that the steps of a run share, up to the end routine.
#ifndef QUENDIL_MAIN_IGMAINRUN_H
#define QUENDIL_MAIN_IGMAINRUN_H

#include <cstdint>

#include "common/base/IGCmnMemory.h"

struct root_tbl;

struct MainRun {
    memory_pool memoryp = nullptr;    // the run's main pool
    char* argument = nullptr;         // all arguments joined, as shown; null without any
    std::uint32_t argument_size = 0;  // capacity of `argument` in bytes
    root_tbl* root = nullptr;         // the run's configuration; null until built
    int lock_fd = -1;                 // descriptor of the single-run lock
};
/// The process's only run. It is global because the end routine has no caller that could pass it.
extern MainRun main_run;

#endif
