// A client's byte stream through the server's frame decoder: the first byte says where the reads
// cut the rest, which is then decoded frame by frame as the server does, until a frame is refused.
// Every frame taken must lie inside the bytes and fit its type.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "frames.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace ryn;
    if (size == 0) return 0;
    const std::size_t chunk = 1 + data[0] % 64;
    const std::vector<uint8_t> stream(data + 1, data + size);
    std::vector<uint8_t> in; // what has arrived and is not yet decoded
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
        const std::size_t n = std::min(chunk, stream.size() - at);
        in.insert(in.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
                  stream.begin() + static_cast<std::ptrdiff_t>(at + n));
        std::size_t pos = 0;
        for (;;) {
            serve::ClientFrame f;
            std::size_t used = 0;
            std::string why;
            const serve::Decoded d =
                serve::next_frame(in.data() + pos, in.size() - pos, &f, &used, &why);
            if (d == serve::Decoded::bad) {
                if (why.empty()) std::abort();
                return 0; // the connection would be closed here
            }
            if (d == serve::Decoded::need_more) break;
            if (used < wire::FRAME_HEADER_SIZE || used > in.size() - pos ||
                used > wire::FRAME_HEADER_SIZE + wire::NET_MAX_BODY)
                std::abort();
            if (f.data_size > 0 &&
                (f.data < in.data() + pos || f.data + f.data_size > in.data() + pos + used))
                std::abort();
            if (f.type == wire::FRAME_SEND && !wire::holds_one_record(f.data, f.data_size))
                std::abort();
            pos += used;
        }
        in.erase(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(pos));
    }
    return 0;
}
