// Reading command lines from a file descriptor: large reads, a byte-order mark skipped, line ends
// "\n" or "\r\n", NUL bytes and read errors reported rather than lost.
#pragma once

#include <cstddef>
#include <string>

namespace ryn::cli {

class LineReader {
  public:
    // Reads from `fd`, which the reader does not close.
    explicit LineReader(int fd);

    // The next line without its line end; false at the end of the input or after a read error.
    bool next(std::string &line);
    // Column (1-based) of the first NUL byte of the last line, 0 when it has none.
    std::size_t nul_column() const { return nul_; }
    // The errno of a failed read, 0 when the input ended normally.
    int error() const { return error_; }

  private:
    bool fill();

    int fd_;
    std::string buffer_;
    std::size_t start_ = 0;
    bool eof_ = false;
    bool first_ = true;
    int error_ = 0;
    std::size_t nul_ = 0;
};

} // namespace ryn::cli
