// The output of a check: text, JSON or SARIF. Each finding is written when its file is done, so
// that very many take no memory.
#ifndef QUENDIL_CHECK_IGCHECKREPORT_H
#define QUENDIL_CHECK_IGCHECKREPORT_H

#include <cstddef>
#include <memory>
#include <string>

#include "check/IGCheckFile.h"
#include "check/IGCheckOption.h"

/// What a check has found in all files.
struct Totals {
    std::size_t files = 0;
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::size_t truncated = 0;   // files with more findings than are shown
    std::size_t unreadable = 0;  // files and directories, which are not in `files`

    void count(const CheckedFile& file);
};

class Report {
  public:
    Report() = default;
    virtual ~Report() = default;
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    virtual void begin() = 0;
    virtual void add(CheckedFile& file) = 0;
    virtual void end(const Totals& totals) = 0;
};

std::unique_ptr<Report> makeTextReport();
std::unique_ptr<Report> makeJsonReport();
std::unique_ptr<Report> makeSarifReport();

#endif
