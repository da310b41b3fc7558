// Line reading for the tool's batches, in reads of 64 KiB.
#include "input.hpp"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace ryn::cli {

LineReader::LineReader(int fd) : fd_(fd) {}

bool LineReader::fill() {
    if (eof_ || error_ != 0) return false;
    if (start_ > 0) {
        buffer_.erase(0, start_);
        start_ = 0;
    }
    const std::size_t old = buffer_.size();
    buffer_.resize(old + 64 * 1024);
    ssize_t n;
    do {
        n = ::read(fd_, buffer_.data() + old, 64 * 1024);
    } while (n < 0 && errno == EINTR);
    buffer_.resize(old + (n > 0 ? static_cast<std::size_t>(n) : 0));
    if (n < 0) error_ = errno;
    if (n == 0) eof_ = true;
    if (first_ && buffer_.size() >= 3) {
        first_ = false;
        if (buffer_.compare(0, 3, "\xEF\xBB\xBF") == 0) start_ = 3; // a UTF-8 byte-order mark
    }
    return n > 0;
}

bool LineReader::next(std::string &line) {
    std::size_t end;
    while ((end = buffer_.find('\n', start_)) == std::string::npos)
        if (!fill()) break;
    if (first_ && (eof_ || error_ != 0)) { // a file shorter than a byte-order mark
        first_ = false;
        if (buffer_.compare(0, 3, "\xEF\xBB\xBF") == 0) start_ = 3;
    }
    if (error_ != 0) return false;
    if (end == std::string::npos) {
        if (start_ >= buffer_.size()) return false;
        end = buffer_.size();
    }
    first_ = false;
    line.assign(buffer_, start_, end - start_);
    start_ = end < buffer_.size() ? end + 1 : end;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const std::size_t nul = line.find('\0');
    nul_ = nul == std::string::npos ? 0 : nul + 1;
    return true;
}

} // namespace ryn::cli
