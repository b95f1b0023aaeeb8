#include "view/IGViewGzip.h"

Compressor::Compressor(int level) {
    constexpr int GZIP = 16;   // zlib's flag, beside the size of the window
    constexpr int MEMORY = 8;  // zlib's default; with more, texts of a run become larger
    ready_ = ::deflateInit2(&stream_, level, Z_DEFLATED, MAX_WBITS + GZIP, MEMORY,
                            Z_DEFAULT_STRATEGY) == Z_OK;
}

Compressor::~Compressor() {
    ::deflateEnd(&stream_);
}

std::string_view Compressor::compressed(std::string_view text) {
    if (!ready_ || ::deflateReset(&stream_) != Z_OK) {
        return {};
    }
    out_.resize(::deflateBound(&stream_, text.size()));
    // zlib does not write to its input.
    stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream_.avail_in = static_cast<uInt>(text.size());
    stream_.next_out = reinterpret_cast<Bytef*>(out_.data());
    stream_.avail_out = static_cast<uInt>(out_.size());
    const bool done = ::deflate(&stream_, Z_FINISH) == Z_STREAM_END;
    return std::string_view(out_).substr(0, done ? stream_.total_out : 0);
}
