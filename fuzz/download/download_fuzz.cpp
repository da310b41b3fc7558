// Restores arbitrary parameter files: the first byte chooses the download's axes, types, filter
// mode and translator flags, the rest is the file, one line per newline. The drives' memory is put
// back to its defaults before each input, so that a run depends on its input alone. Whatever the
// lines, the download must end with a code of the library and a report that adds up: no more
// lines read than given, every command sent answered once (acknowledged or refused), and the
// first refused line among those read.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "ryn/oxbsim.h"
#include "ryn/sup.h"
#include "ryn/tra.h"

namespace {

struct Bus {
    OXB_PORT *port = nullptr;
    OXB_BUS *bus = nullptr;
    TRA *tra = nullptr;
    Bus() {
        if (oxb_open("sim:answer_ms=5", &port) != 0 || oxb_get_port_bus(port, &bus) != 0 ||
            tra_create_register_traductor_e(&tra, port, 0) != 0)
            std::abort();
    }
};

struct Source {
    const std::vector<std::string> *lines;
    std::size_t next = 0;
};

int read_line(TRA *, char *buffer, int32_t size, void *user) {
    auto &s = *static_cast<Source *>(user);
    if (s.next >= s.lines->size()) return -1;
    const std::string &l = (*s.lines)[s.next++];
    const std::size_t n = std::min(l.size(), static_cast<std::size_t>(size - 1));
    l.copy(buffer, n);
    buffer[n] = '\0';
    return 0;
}

constexpr uint64_t AXES[] = {0x1,          0x2,  0xF, 0x8000000000000000ull, 0x800000000000000Full,
                             ~uint64_t{0}, 0x10, 0x6};
// The user register families (X, K, L, E, W, C) and one type that may not be streamed (M).
constexpr uint8_t TYPES[] = {1, 2, 8, 9, 12, 13, 3};
constexpr uint32_t FLAGS[] = {0, TRA_FDOWNLOAD_AXES, TRA_FUSE_ALIASES, TRA_FNO_CHECK};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Bus b;
    if (size == 0) return 0;
    const unsigned choice = data[0];
    std::vector<std::string> lines(1);
    for (std::size_t i = 1; i < size; ++i) {
        if (data[i] == '\n')
            lines.emplace_back();
        else
            lines.back() += static_cast<char>(data[i]);
    }
    const int type_count = (choice & 0x8) != 0 ? 2 : 6; // the first two families, or all six
    const uint32_t filter_mode = (choice >> 4) & 3;
    oxbsim_reset(b.bus, ~uint64_t{0});
    tra_set_flags(b.tra, FLAGS[(choice >> 6) & 3]);
    Source src{&lines};
    const int rc = filter_mode == 0
                       ? tra_oxcom_download_register_stream_e(b.tra, AXES[choice & 7], type_count,
                                                              TYPES, read_line, &src)
                       : tra_oxcom_download_register_stream_e2(b.tra, AXES[choice & 7], type_count,
                                                               TYPES, filter_mode, read_line, &src);
    TRA_STREAM_REPORT r{};
    r.size = sizeof r;
    if (tra_get_stream_report(b.tra, &r) != 0 || rc > 0 || r.lines > lines.size() ||
        r.acknowledged + r.refused != r.sent || (r.refused > 0) != (r.first_refused_line > 0) ||
        r.first_refused_line > static_cast<int32_t>(r.lines) || (rc != 0 && rc < -599))
        std::abort();
    sup_trace_clear();
    return 0;
}
