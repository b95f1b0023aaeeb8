// Splits the content of an item into lines.
#ifndef QUENDIL_VIEW_IGVIEWLINES_H
#define QUENDIL_VIEW_IGVIEWLINES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

/// The bytes of a line that are kept: the rest of a longer one is dropped.
inline constexpr std::size_t LONGEST_LINE = std::size_t{64} * 1024;

/// Takes pieces of a text and gives its lines, without their line feeds.
class LineSplitter {
  public:
    /// Gives every line that is complete.
    template <typename Take>
    void add(std::string_view piece, Take take) {
        while (!piece.empty()) {
            const void* found = std::memchr(piece.data(), '\n', piece.size());
            if (found == nullptr) {
                keep(piece);
                return;
            }
            const auto length =
                static_cast<std::size_t>(static_cast<const char*>(found) - piece.data());
            if (!open_) {
                take(piece.substr(0, std::min(length, LONGEST_LINE)));
            } else {
                keep(piece.substr(0, length));
                take(std::string_view(line_));
            }
            clear();
            ++lines_;
            piece.remove_prefix(length + 1);
        }
    }

    /// Gives the last line if it has no line feed.
    template <typename Take>
    void finish(Take take) {
        if (open_) {
            take(std::string_view(line_));
            clear();
            ++lines_;
        }
    }

    /// The lines so far.
    [[nodiscard]] std::uint64_t lines() const { return lines_; }

  private:
    void keep(std::string_view piece) {
        open_ = open_ || !piece.empty();
        line_.append(piece.substr(0, LONGEST_LINE - line_.size()));
    }

    void clear() {
        line_.clear();
        open_ = false;
    }

    std::string line_;   // the beginning of a line whose end is in a later piece
    bool open_ = false;  // whether there is one
    std::uint64_t lines_ = 0;
};

#endif
