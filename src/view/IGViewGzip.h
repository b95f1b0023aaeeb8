// Compresses in the format of gzip (RFC 1952), which browsers open by themselves.
#ifndef QUENDIL_VIEW_IGVIEWGZIP_H
#define QUENDIL_VIEW_IGVIEWGZIP_H

#include <zlib.h>

#include <string>
#include <string_view>

inline constexpr int BEST_COMPRESSION = Z_BEST_COMPRESSION;
inline constexpr int USUAL_COMPRESSION = Z_DEFAULT_COMPRESSION;

/// Compresses texts, each as one file of gzip.
class Compressor {
  public:
    explicit Compressor(int level);
    ~Compressor();
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    /// @param text less than 4 GiB
    /// @return valid until the next call; "" if memory ran out
    std::string_view compressed(std::string_view text);

  private:
    z_stream stream_ = {};
    std::string out_;
    bool ready_ = false;
};

#endif
