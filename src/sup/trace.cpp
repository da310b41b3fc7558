// The per-thread error trace: fixed storage, no allocation, nested suspension.
#include "ryn/sup.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace {

template <std::size_t N>
void copy_text(std::array<char, N> &to, const char *from) {
    if (from == nullptr) {
        to[0] = '\0';
        return;
    }
    std::size_t n = std::min(std::strlen(from), N - 1);
    std::memcpy(to.data(), from, n);
    to[n] = '\0';
}

// One frame, its texts copied so that callers may pass texts that live on their stack.
struct Frame {
    std::array<char, 16> file;
    int line;
    std::array<char, 64> function;
    int code;
    std::array<char, 256> message;
    std::array<char, 64> note;
    std::array<std::array<char, 96>, SUP_TRACE_DETAILS> details;
};

struct Trace {
    std::array<Frame, SUP_TRACE_MAX_FRAMES> frames;
    int count = 0;
    int suspended = 0;
};

// Per thread and zero-initialised in place: recording never allocates.
thread_local Trace trace;

Frame *next_frame() {
    if (trace.suspended > 0 || trace.count >= SUP_TRACE_MAX_FRAMES) return nullptr;
    return &trace.frames[static_cast<std::size_t>(trace.count++)];
}

} // namespace

extern "C" {

void sup_trace_error(const char *file, int line, const char *function, int code,
                     const char *message, const char *d1, const char *d2, const char *d3,
                     const char *d4, const char *d5) {
    if (trace.suspended > 0) return;
    // Every failure is passed on by pass frames only, so an origin always begins a new failure.
    trace.count = 0;
    Frame *f = next_frame();
    copy_text(f->file, file);
    f->line = line;
    copy_text(f->function, function);
    f->code = code;
    copy_text(f->message, message);
    f->note[0] = '\0';
    const char *details[SUP_TRACE_DETAILS] = {d1, d2, d3, d4, d5};
    for (int i = 0; i < SUP_TRACE_DETAILS; ++i)
        copy_text(f->details[static_cast<std::size_t>(i)], details[i]);
}

void sup_trace_pass(const char *file, int line, const char *function, const char *note) {
    Frame *f = next_frame();
    if (f == nullptr) return;
    copy_text(f->file, file);
    f->line = line;
    copy_text(f->function, function);
    f->code = 0;
    f->message[0] = '\0';
    copy_text(f->note, note);
    for (auto &d : f->details)
        d[0] = '\0';
}

void sup_trace_suspend(void) {
    ++trace.suspended;
}

void sup_trace_resume(void) {
    if (trace.suspended > 0) --trace.suspended;
}

int sup_trace_count(void) {
    return trace.count;
}

int sup_trace_get(int i, SUP_FRAME *frame) {
    if (frame == nullptr || i < 0 || i >= trace.count) return SUP_EBADPARAM;
    const Frame &f = trace.frames[static_cast<std::size_t>(i)];
    frame->file = f.file.data();
    frame->line = f.line;
    frame->function = f.function.data();
    frame->code = f.code;
    frame->message = f.message.data();
    frame->note = f.note.data();
    for (std::size_t d = 0; d < SUP_TRACE_DETAILS; ++d)
        frame->details[d] = f.details[d].data();
    return 0;
}

int sup_trace_format(char *buffer, int size) {
    if (buffer == nullptr || size <= 0) return 0;
    buffer[0] = '\0';
    // The whole text is measured while what fits is written, so that a caller learns from the
    // length returned whether its buffer held all of it.
    int need = 0;
    auto put = [&](const char *format, auto... args) {
        int at = std::min(need, size - 1);
        int n = std::snprintf(buffer + at, static_cast<std::size_t>(size - at), format, args...);
        if (n > 0) need += n;
    };
    for (int i = 0; i < trace.count; ++i) {
        const Frame &f = trace.frames[static_cast<std::size_t>(i)];
        if (i == 0)
            put("%s:%d %s: %d %s", f.file.data(), f.line, f.function.data(), f.code,
                f.message.data());
        else
            put("  from %s:%d %s", f.file.data(), f.line, f.function.data());
        for (const auto &d : f.details)
            if (d[0] != '\0') put(" (%s)", d.data());
        if (f.note[0] != '\0') put(": %s", f.note.data());
        put("%s", "\n");
    }
    return need;
}

void sup_trace_clear(void) {
    trace.count = 0;
}

} // extern "C"
