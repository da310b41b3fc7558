// The server's side of the served bus protocol: the decoder of what clients send (whole frames
// out of a byte stream, each checked against its layout), the encoder of what the server sends,
// the token comparison and the --listen address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "wire/wire.hpp"

namespace ryn::serve {

// One frame from a client, checked: its fixed fields read, its variable part (the record of a
// send, the token of a hello, the types of a check) pointing into the decoded bytes.
struct ClientFrame {
    uint16_t type = 0;
    uint64_t id = 0;      // the ticket of a send, the call of a request
    uint64_t axes = 0;    // a send's axes
    int32_t arg = 0;      // a send's or a lock's timeout, an axis, a count of types
    uint32_t version = 0; // a hello's protocol version
    const uint8_t *data = nullptr;
    uint32_t data_size = 0;
};

enum class Decoded {
    frame,     // *out holds one frame, *used bytes of the input make it
    need_more, // the input holds no whole frame yet
    bad,       // not the protocol: *why says what is wrong; the connection is closed
};

// Takes the next frame from the start of `bytes`. A header that announces a body above the
// protocol's maximum, an unknown or server-side type, or a body that does not fit its type is
// refused as soon as it is seen.
Decoded next_frame(const uint8_t *bytes, std::size_t size, ClientFrame *out, std::size_t *used,
                   std::string *why);

// Appends one frame: its header and the body parts given.
void append_frame(std::vector<uint8_t> &out, uint16_t type, const uint8_t *a, std::size_t a_size,
                  const uint8_t *b = nullptr, std::size_t b_size = 0);
// Appends a reply to a call: the call's number, the code, and the payload when the code is 0.
void append_reply(std::vector<uint8_t> &out, uint16_t request, uint64_t call, int32_t code,
                  const void *payload = nullptr, std::size_t payload_size = 0);

// Whether a client's token equals the expected one, in a time that depends on the expected
// token's length only.
bool same_token(std::string_view expected, std::string_view given);

// "127.0.0.1:7500", "[::1]:0", "localhost:7500": host and port; false with a message.
bool parse_listen(std::string_view text, std::string *host, uint16_t *port, std::string *why);

} // namespace ryn::serve
