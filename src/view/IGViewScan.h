// Reads an archive once, from its beginning to its end, and finds out everything but the contents.
#ifndef QUENDIL_VIEW_IGVIEWSCAN_H
#define QUENDIL_VIEW_IGVIEWSCAN_H

#include <cstdint>
#include <string>
#include <string_view>

#include "companion/IGArchive.h"
#include "view/IGViewDefinition.h"
#include "view/IGViewResult.h"

/// Reading stops after this many bytes of content: twice what a run collects by default. A
/// file of a few megabytes can be made that unpacks to more than any disk holds.
inline constexpr std::uint64_t MOST_BYTES = std::uint64_t{8} * 1024 * 1024 * 1024;

/// Gets the lines of the items, one item after the other, while an archive is read.
class LineTaker {
  public:
    LineTaker() = default;
    virtual ~LineTaker() = default;
    LineTaker(const LineTaker&) = delete;
    LineTaker& operator=(const LineTaker&) = delete;

    /// Begins a file. False if its lines are not wanted.
    virtual bool begin(const std::string& name) = 0;
    /// The next line, without its line feed; of a long one, LONGEST_LINE bytes.
    virtual void line(std::string_view text) = 0;
    /// After the last line of a file that was wanted.
    virtual void end(const Item& item) = 0;
};

/// Reads an archive.
/// @param result gets everything; its notices say what could not be read
/// @param taker gets the lines too; may be null
/// @param most_bytes of content that are read
/// @return false if nothing could be read: then `result` is of no use
bool scanArchive(ArchiveReader& archive, const Definitions& definitions, Result& result,
                 LineTaker* taker = nullptr, std::uint64_t most_bytes = MOST_BYTES);

/// The name of a member without the top directory: "uname.txt" for "host_261123/uname.txt".
/// @param top the name of that directory
std::string nameInResult(const std::string& top, const std::string& member);

#endif
