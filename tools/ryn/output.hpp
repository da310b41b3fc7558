// Buffered, checked standard output and standard error of the ryn tool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ryn::cli {

// One output file descriptor behind a large buffer. Every write is checked; after the first failure
// the stream keeps the error and drops what follows, and `finish` reports it.
class Stream {
  public:
    // Writes `size` bytes to the descriptor, as write(2) does; replaceable for tests.
    using Writer = long (*)(int fd, const void *data, std::size_t size);

    Stream(int fd, const char *name, Writer writer = nullptr);
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;
    ~Stream();

    Stream &operator<<(std::string_view text);
    Stream &operator<<(const char *text) { return *this << std::string_view(text); }
    Stream &operator<<(const std::string &text) { return *this << std::string_view(text); }
    Stream &operator<<(char c) { return *this << std::string_view(&c, 1); }
    Stream &operator<<(int value);
    Stream &operator<<(long value);
    Stream &operator<<(unsigned value);
    Stream &operator<<(unsigned long value);

    // Writes out what the buffer holds; false when this or an earlier write failed.
    bool flush();
    // Whether a write has failed, and its errno.
    bool failed() const { return error_ != 0; }
    int error() const { return error_; }
    const char *name() const { return name_; }
    int fd() const { return fd_; }

    // A stream whose buffer is written out before this one writes (standard output before standard
    // error when both go to the same file), so that their lines keep their order.
    void write_first(Stream *other) { first_ = other; }

  private:
    void emit(const char *data, std::size_t size);

    int fd_;
    const char *name_;
    Writer writer_;
    std::string buffer_;
    int error_ = 0;
    Stream *first_ = nullptr;
};

// The tool's standard output and standard error.
Stream &out();
Stream &err();

// Sets up both streams: when they go to the same file (a terminal, or "2>&1") each writes the
// other's buffer out before it writes, so that their lines keep their order.
void setup_streams();

// Flushes both streams; when a write failed, says so on standard error (as far as it still can)
// and gives false.
bool finish_streams();

} // namespace ryn::cli
