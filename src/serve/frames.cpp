// Decoding of clients' frames and encoding of the server's, for the served bus protocol.
#include "frames.hpp"

#include <cstring>

namespace ryn::serve {

namespace {

Decoded bad(std::string *why, const std::string &text) {
    *why = text;
    return Decoded::bad;
}

// Checks the body of a whole frame and reads it into *out.
Decoded decode_body(uint16_t type, const uint8_t *body, uint32_t size, ClientFrame *out,
                    std::string *why) {
    out->type = type;
    switch (type) {
    case wire::FRAME_HELLO: {
        if (size < sizeof(wire::HelloBody)) return bad(why, "a hello shorter than its fields");
        if (wire::load_u32(body + offsetof(wire::HelloBody, magic)) != wire::NET_MAGIC)
            return bad(why, "a hello without the protocol's mark");
        const uint32_t token = wire::load_u32(body + offsetof(wire::HelloBody, token_size));
        if (token > wire::NET_MAX_TOKEN || size != sizeof(wire::HelloBody) + token)
            return bad(why, "a hello whose token size does not fit the frame");
        if (wire::load_u32(body + offsetof(wire::HelloBody, zero)) != 0)
            return bad(why, "a hello with a reserved field set");
        out->version = wire::load_u32(body + offsetof(wire::HelloBody, version));
        out->data = body + sizeof(wire::HelloBody);
        out->data_size = token;
        return Decoded::frame;
    }
    case wire::FRAME_SEND: {
        const uint8_t *record = body + sizeof(wire::SendBody);
        const uint32_t record_size = size - static_cast<uint32_t>(sizeof(wire::SendBody));
        if (size < sizeof(wire::SendBody) || !wire::holds_one_record(record, record_size))
            return bad(why, "a send whose record does not fill the frame");
        if (wire::load_u32(body + offsetof(wire::SendBody, zero)) != 0)
            return bad(why, "a send with a reserved field set");
        out->id = wire::load_u64(body + offsetof(wire::SendBody, ticket));
        out->axes = wire::load_u64(body + offsetof(wire::SendBody, axes));
        out->arg =
            static_cast<int32_t>(wire::load_u32(body + offsetof(wire::SendBody, timeout_ms)));
        out->data = record;
        out->data_size = record_size;
        return Decoded::frame;
    }
    case wire::FRAME_LOCK:
    case wire::FRAME_UNLOCK:
    case wire::FRAME_PRESENT:
    case wire::FRAME_DRIVE_INFO:
    case wire::FRAME_EXT_INFO:
    case wire::FRAME_BUS_INFO:
    case wire::FRAME_CHECK_TYPES: {
        if (size < sizeof(wire::CallBody)) return bad(why, "a request shorter than its fields");
        if (wire::load_u32(body + offsetof(wire::CallBody, zero)) != 0)
            return bad(why, "a request with a reserved field set");
        out->id = wire::load_u64(body + offsetof(wire::CallBody, call));
        out->arg = static_cast<int32_t>(wire::load_u32(body + offsetof(wire::CallBody, arg)));
        out->data = body + sizeof(wire::CallBody);
        out->data_size = size - static_cast<uint32_t>(sizeof(wire::CallBody));
        const uint32_t extra =
            type == wire::FRAME_CHECK_TYPES && out->arg >= 0 ? static_cast<uint32_t>(out->arg) : 0;
        if (type == wire::FRAME_CHECK_TYPES && out->arg < 0)
            return bad(why, "a check of a negative count of types");
        if (out->data_size != extra) return bad(why, "a request whose size does not fit its type");
        return Decoded::frame;
    }
    default:
        return bad(why, "frame type " + std::to_string(type) + " is not a client's");
    }
}

} // namespace

Decoded next_frame(const uint8_t *bytes, std::size_t size, ClientFrame *out, std::size_t *used,
                   std::string *why) {
    if (size < wire::FRAME_HEADER_SIZE) return Decoded::need_more;
    const wire::FrameHeader h = wire::load_frame_header(bytes);
    if (h.size > wire::NET_MAX_BODY)
        return bad(why, "a frame of " + std::to_string(h.size) + " bytes (at most " +
                            std::to_string(wire::NET_MAX_BODY) + ")");
    if (h.zero != 0) return bad(why, "a frame header with a reserved field set");
    const uint32_t fixed = wire::frame_fixed_size(h.type);
    if (fixed == 0) return bad(why, "unknown frame type " + std::to_string(h.type));
    if (h.size < fixed) return bad(why, "a frame shorter than its type's fields");
    if (size - wire::FRAME_HEADER_SIZE < h.size) return Decoded::need_more;
    *out = ClientFrame{};
    const Decoded d = decode_body(h.type, bytes + wire::FRAME_HEADER_SIZE, h.size, out, why);
    if (d == Decoded::frame) *used = wire::FRAME_HEADER_SIZE + h.size;
    return d;
}

void append_frame(std::vector<uint8_t> &out, uint16_t type, const uint8_t *a, std::size_t a_size,
                  const uint8_t *b, std::size_t b_size) {
    const std::size_t at = out.size();
    out.resize(at + wire::FRAME_HEADER_SIZE + a_size + b_size);
    uint8_t *p = out.data() + at;
    wire::store_frame_header(p, static_cast<uint32_t>(a_size + b_size), type);
    if (a_size > 0) std::memcpy(p + wire::FRAME_HEADER_SIZE, a, a_size);
    if (b_size > 0) std::memcpy(p + wire::FRAME_HEADER_SIZE + a_size, b, b_size);
}

void append_reply(std::vector<uint8_t> &out, uint16_t request, uint64_t call, int32_t code,
                  const void *payload, std::size_t payload_size) {
    uint8_t body[sizeof(wire::ReplyBody)] = {};
    wire::store_u64(body + offsetof(wire::ReplyBody, call), call);
    wire::store_u32(body + offsetof(wire::ReplyBody, code), static_cast<uint32_t>(code));
    append_frame(out, static_cast<uint16_t>(request | wire::NET_REPLY), body, sizeof body,
                 static_cast<const uint8_t *>(payload), code == 0 ? payload_size : 0);
}

bool same_token(std::string_view expected, std::string_view given) {
    unsigned diff = expected.size() != given.size() ? 1u : 0u;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const unsigned char g = i < given.size() ? static_cast<unsigned char>(given[i]) : 0;
        diff |= static_cast<unsigned char>(expected[i]) ^ g;
    }
    return diff == 0;
}

namespace {

// "'TEXT': what", built by appending (g++ 12 at -O3 warns of the same built with operator+).
std::string quoted(std::string_view text, const char *what) {
    std::string s;
    s.reserve(text.size() + 80);
    s.append("'").append(text).append("': ").append(what);
    return s;
}

} // namespace

bool parse_listen(std::string_view text, std::string *host, uint16_t *port, std::string *why) {
    std::string_view port_text;
    if (text.starts_with("[")) {
        const std::size_t close = text.find(']');
        if (close == std::string_view::npos || close + 1 >= text.size() || text[close + 1] != ':') {
            *why = quoted(text, "an IPv6 address is written [ADDRESS]:PORT");
            return false;
        }
        *host = std::string(text.substr(1, close - 1));
        port_text = text.substr(close + 2);
    } else {
        const std::size_t colon = text.rfind(':');
        if (colon == std::string_view::npos || text.find(':') != colon) {
            *why = quoted(text, "the address to listen on is ADDRESS:PORT");
            return false;
        }
        *host = std::string(text.substr(0, colon));
        port_text = text.substr(colon + 1);
    }
    uint32_t value = 0;
    bool ok = !port_text.empty() && port_text.size() <= 5 && !host->empty();
    for (char c : port_text) {
        if (c < '0' || c > '9') ok = false;
        value = value * 10 + static_cast<uint32_t>(c - '0');
    }
    if (!ok || value > 65535) {
        *why = quoted(text, "the address to listen on is ADDRESS:PORT, the port 0 to 65535 (0: "
                            "any free port)");
        return false;
    }
    *port = static_cast<uint16_t>(value);
    return true;
}

} // namespace ryn::serve
