// The exported translations between command text and bus records.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "traa2r.hpp"
#include "trar2a.hpp"

namespace ryn::tra {
namespace {

// Copies a translated text into the caller's buffer, cut to size - 1 characters when it does not
// fit. A cut into a buffer of a size outside 1..REC_TEXT_SIZE is a misuse the caller cannot be
// told about through the result, so the process is stopped with a message on standard error.
void deliver(const char *function, char *text, int size, char *translated) {
    std::size_t length = std::strlen(translated);
    if (length >= static_cast<std::size_t>(size < 0 ? 0 : size)) {
        if (size < 1 || size > REC_TEXT_SIZE) {
            std::fprintf(stderr,
                         "ryn: %s: destination size %d outside 1..%d for a text of %zu "
                         "characters; stopping\n",
                         function, size, REC_TEXT_SIZE, length);
            std::fflush(stderr);
            std::abort();
        }
        translated[size - 1] = '\0';
        length = static_cast<std::size_t>(size - 1);
    }
    std::memcpy(text, translated, length + 1);
}

} // namespace
} // namespace ryn::tra

using namespace ryn::tra;

extern "C" int tra_oxcom_translate_cmd_from_ascii_ex(TRA *tra, TRA_RECORD *record,
                                                     uint32_t capacity, uint32_t *count,
                                                     uint64_t *axis_mask, const char *text) {
    static constexpr Tracer t{"tracmd", "tra_oxcom_translate_cmd_from_ascii_ex"};
    return exported(t, __LINE__, tra, Accept::any, [&](TRA &x) {
        if (text == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "null command text");
        if (capacity > 65535) return t.fail(__LINE__, TRA_EBADPARAM, "capacity above 65535");
        // The count goes straight to the caller's word (-1, nothing to send, reads as 0xFFFFFFFF),
        // so that a record too small for the line still tells the slots it needs.
        int rc = _tra_asc2rec_ex(&x, text, record, static_cast<int32_t>(capacity), 0, nullptr,
                                 reinterpret_cast<int32_t *>(count), axis_mask);
        return rc == 0 ? 0 : t.pass(__LINE__, rc);
    });
}

// The frame of both directions towards text: handle and destination tested, the record written
// into the call's own buffer by `translate`, then delivered, cut where it does not fit.
template <class Translate>
int to_text(const Tracer &t, TRA *tra, char *text, int size, Translate &&translate) {
    return exported(t, __LINE__, tra, Accept::any, [&](TRA &x) {
        if (text == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "null destination text");
        char translated[REC_TEXT_SIZE];
        translated[0] = '\0';
        int rc = translate(x, translated);
        if (rc != 0) return t.pass(__LINE__, rc);
        deliver(t.function, text, size, translated);
        return 0;
    });
}

extern "C" int tra_oxcom_translate_cmd_to_ascii_ex(TRA *tra, const TRA_RECORD *record,
                                                   uint64_t axis_mask, char *text, int size) {
    static constexpr Tracer t{"tracmd", "tra_oxcom_translate_cmd_to_ascii_ex"};
    return to_text(t, tra, text, size, [&](TRA &x, char *translated) {
        return _tra_rec2asc_ex(&x, translated, record, axis_mask, REC_TEXT_SIZE);
    });
}

extern "C" int tra_oxcom_translate_rqs_to_ascii_ex(TRA *tra, const TRA_RECORD *request,
                                                   const TRA_RECORD *answer, uint64_t axis_mask,
                                                   char *text, int size) {
    static constexpr Tracer t{"tracmd", "tra_oxcom_translate_rqs_to_ascii_ex"};
    return to_text(t, tra, text, size, [&](TRA &x, char *translated) {
        return _tra_rec2asc2_ex(&x, translated, request, answer, axis_mask, REC_TEXT_SIZE);
    });
}
