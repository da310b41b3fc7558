// Buffered, checked standard output and standard error: one write(2) per 64 KiB at most, and a
// failed write reported instead of lost.
#include "output.hpp"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace ryn::cli {

namespace {

constexpr std::size_t buffer_size = 64 * 1024;

long system_write(int fd, const void *data, std::size_t size) {
    return static_cast<long>(::write(fd, data, size));
}

template <typename T> std::string_view number_text(char (&text)[24], T value) {
    const auto r = std::to_chars(text, text + sizeof text, value);
    return {text, static_cast<std::size_t>(r.ptr - text)};
}

} // namespace

Stream::Stream(int fd, const char *name, Writer writer)
    : fd_(fd), name_(name), writer_(writer != nullptr ? writer : system_write) {
    buffer_.reserve(buffer_size);
}

Stream::~Stream() {
    flush();
}

void Stream::emit(const char *data, std::size_t size) {
    while (size > 0 && error_ == 0) {
        const long n = writer_(fd_, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            error_ = n < 0 ? errno : EIO;
            return;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
}

Stream &Stream::operator<<(std::string_view text) {
    if (error_ != 0) return *this;
    if (first_ != nullptr && first_ != this) first_->flush();
    if (buffer_.size() + text.size() > buffer_size) {
        emit(buffer_.data(), buffer_.size());
        buffer_.clear();
    }
    if (text.size() >= buffer_size)
        emit(text.data(), text.size());
    else
        buffer_.append(text);
    return *this;
}

Stream &Stream::operator<<(int value) {
    char text[24];
    return *this << number_text(text, value);
}
Stream &Stream::operator<<(long value) {
    char text[24];
    return *this << number_text(text, value);
}
Stream &Stream::operator<<(unsigned value) {
    char text[24];
    return *this << number_text(text, value);
}
Stream &Stream::operator<<(unsigned long value) {
    char text[24];
    return *this << number_text(text, value);
}

bool Stream::flush() {
    if (!buffer_.empty() && error_ == 0) emit(buffer_.data(), buffer_.size());
    buffer_.clear();
    return error_ == 0;
}

Stream &out() {
    static Stream stream(STDOUT_FILENO, "standard output");
    return stream;
}

Stream &err() {
    static Stream stream(STDERR_FILENO, "standard error");
    return stream;
}

void setup_streams() {
    struct stat a {};
    struct stat b {};
    const bool same = fstat(STDOUT_FILENO, &a) == 0 && fstat(STDERR_FILENO, &b) == 0 &&
                      a.st_dev == b.st_dev && a.st_ino == b.st_ino;
    if (!same) return;
    out().write_first(&err());
    err().write_first(&out());
}

bool finish_streams() {
    const bool out_ok = out().flush();
    if (!out_ok)
        err() << "ryn: cannot write " << out().name() << ": " << std::strerror(out().error())
              << '\n';
    const bool err_ok = err().flush();
    return out_ok && err_ok;
}

} // namespace ryn::cli
