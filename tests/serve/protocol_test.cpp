// The server against what a client may write: malformed frames of every kind, clients that die
// in the middle of a frame, more clients than it serves, tokens; after each, a well-behaved client
// is still served. And the pieces of the protocol: the frame decoder, the token comparison, the
// address to listen on.
#include "serve_fixture.hpp"

namespace ryn::test {
namespace {

// A well-behaved client still exchanges records with the server.
void expect_still_serving(ServedBus &served) {
    Client c(served.address());
    ASSERT_EQ(c.rc, 0) << oxb_translate_error(c.rc);
    EXPECT_TRUE(c.exchange(1, read(K, 1)).ack());
}

struct BadInput {
    const char *name;
    bool hello_first;           // the bytes follow a good hello
    std::vector<uint8_t> bytes; // what the client writes
    const char *logged;         // what the server's log says of it
    bool refused;               // a refusal frame comes before the end
};

std::vector<uint8_t> with_field(std::vector<uint8_t> bytes, std::size_t at, uint32_t value) {
    wire::store_u32(bytes.data() + at, value);
    return bytes;
}

const Record probe = read(K, 1);

const BadInput bad_inputs[] = {
    {"oversized_length", false, frame(wire::FRAME_HELLO, hello_body(), 0x7FFFFFFF), "at most 2048",
     false},
    {"length_just_above_maximum", true, frame(wire::FRAME_SEND, {}, wire::NET_MAX_BODY + 1),
     "at most 2048", false},
    {"unknown_type", true, frame(999, std::vector<uint8_t>(16)), "unknown frame type 999", false},
    {"server_side_type", true, frame(wire::FRAME_ANSWER, std::vector<uint8_t>(16)),
     "is not a client's", false},
    {"reserved_header_field", false, with_field(frame(wire::FRAME_HELLO, hello_body()), 4, 0x10001),
     "reserved field", false},
    {"hello_without_mark", false, frame(wire::FRAME_HELLO, hello_body("", 1, 0x12345678)),
     "protocol's mark", false},
    {"hello_token_size_too_big", false,
     frame(wire::FRAME_HELLO, with_field(hello_body("abc"), 8, 100)), "token size", false},
    {"other_protocol_version", false, frame(wire::FRAME_HELLO, hello_body("", 2)),
     "protocol version 2", true},
    {"request_before_hello", false, frame(wire::FRAME_PRESENT, std::vector<uint8_t>(16)),
     "before the hello", false},
    {"second_hello", true, frame(wire::FRAME_HELLO, hello_body()), "second hello", false},
    {"send_record_size_mismatch", true,
     [] {
         auto b = send_body(1, 1, probe);
         b.push_back(0); // one byte more than the record's slot count says
         return frame(wire::FRAME_SEND, b);
     }(),
     "does not fill", false},
    {"send_slot_count_above_65", true,
     [] {
         auto b = send_body(1, 1, probe);
         b[24] = 66;
         return frame(wire::FRAME_SEND, b);
     }(),
     "does not fill", false},
    {"check_with_negative_count", true,
     frame(wire::FRAME_CHECK_TYPES, with_field(std::vector<uint8_t>(16), 8, 0xFFFFFFFF)),
     "negative count", false},
    {"request_with_extra_bytes", true, frame(wire::FRAME_LOCK, std::vector<uint8_t>(17)),
     "does not fit its type", false},
    {"frame_shorter_than_its_fields", true, frame(wire::FRAME_SEND, std::vector<uint8_t>(8)),
     "shorter than", false},
};

class MalformedInput : public ::testing::TestWithParam<BadInput> {};

TEST_P(MalformedInput, ClosesThatConnectionOnly) {
    const BadInput &c = GetParam();
    ServedBus served;
    Client bystander(served.address());
    ASSERT_EQ(bystander.rc, 0);
    Raw raw(served.port());
    ASSERT_TRUE(raw.connected);
    bool closed = false;
    if (c.hello_first) {
        ASSERT_TRUE(raw.write(frame(wire::FRAME_HELLO, hello_body())));
        const auto welcome = raw.read(100, &closed);
        ASSERT_FALSE(closed);
        ASSERT_GE(welcome.size(), 8u);
        EXPECT_EQ(wire::load_frame_header(welcome.data()).type, wire::FRAME_WELCOME);
    }
    raw.write(c.bytes);
    const auto got = raw.read(2000, &closed);
    EXPECT_TRUE(closed) << "the server closes the connection";
    EXPECT_EQ(!got.empty() && wire::load_frame_header(got.data()).type == wire::FRAME_REFUSED,
              c.refused);
    EXPECT_TRUE(served.logged(c.logged)) << c.logged;
    EXPECT_TRUE(bystander.exchange(1, read(K, 1)).ack()) << "others are still served";
    expect_still_serving(served);
}

INSTANTIATE_TEST_SUITE_P(Inputs, MalformedInput, ::testing::ValuesIn(bad_inputs),
                         [](const auto &info) { return std::string(info.param.name); });

// A client that dies in the middle of a frame, with an orderly end or a reset.
struct Truncated {
    const char *name;
    std::size_t keep; // bytes of the frame written before the end
    bool reset;
};

class TruncatedFrame : public ::testing::TestWithParam<Truncated> {};

TEST_P(TruncatedFrame, LeavesTheServerServingOthers) {
    const Truncated &c = GetParam();
    ServedBus served;
    Client bystander(served.address());
    ASSERT_EQ(bystander.rc, 0);
    {
        Raw raw(served.port());
        ASSERT_TRUE(raw.write(frame(wire::FRAME_HELLO, hello_body())));
        // The largest send: written in chunks, the last never comes.
        Record big;
        oxb_build_record(big.bytes, 65, wire::REC_COMMAND, wire::CMD_SET, "");
        big.bytes[0] = 65;
        const auto f = frame(wire::FRAME_SEND, send_body(7, 1, big));
        ASSERT_GT(f.size(), 1000u);
        for (std::size_t at = 0; at < c.keep; at += 100) {
            raw.write(std::vector<uint8_t>(
                f.begin() + static_cast<std::ptrdiff_t>(at),
                f.begin() + static_cast<std::ptrdiff_t>(std::min(at + 100, c.keep))));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        if (c.reset) raw.abort();
    }
    EXPECT_TRUE(served.logged("disconnected"));
    EXPECT_TRUE(bystander.exchange(1, read(K, 1)).ack());
    expect_still_serving(served);
}

INSTANTIATE_TEST_SUITE_P(Ends, TruncatedFrame,

                         ::testing::Values(Truncated{"inside_body", 700, false},
                                           Truncated{"inside_body_reset", 700, true}),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(ServerLimits, AFloodOfHellosBeyondMaxClientsIsRefused) {
    serve::Options o;
    o.max_clients = 3;
    ServedBus served(o);
    std::vector<std::unique_ptr<Raw>> held;
    for (int i = 0; i < 3; ++i) {
        held.push_back(std::make_unique<Raw>(served.port()));
        ASSERT_TRUE(held.back()->write(frame(wire::FRAME_HELLO, hello_body())));
        bool closed = false;
        held.back()->read(100, &closed);
        ASSERT_FALSE(closed);
    }
    for (int i = 0; i < 20; ++i) {
        Raw extra(served.port());
        extra.write(frame(wire::FRAME_HELLO, hello_body()));
        bool closed = false;
        const auto got = extra.read(1000, &closed);
        EXPECT_TRUE(closed);
        ASSERT_GE(got.size(), 8u);
        EXPECT_EQ(wire::load_frame_header(got.data()).type, wire::FRAME_REFUSED);
    }
    Client refused(served.address());
    EXPECT_EQ(refused.rc, OXB_ELOST);
    EXPECT_NE(std::string(oxb_translate_error(refused.rc)).find("serves 3 clients already"),
              std::string::npos);
    EXPECT_TRUE(served.logged("refused: the server serves 3 clients already"));
    held.clear();
    EXPECT_TRUE(served.logged("disconnected"));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    expect_still_serving(served);
}

TEST(ServerLimits, AConnectionWithoutHelloIsClosedInTime) {
    serve::Options o;
    o.hello_ms = 150;
    o.max_clients = 1;
    ServedBus served(o);
    Raw idle(served.port());
    bool closed = false;
    idle.read(2000, &closed);
    EXPECT_TRUE(closed);
    EXPECT_TRUE(served.logged("no hello within 150 ms"));
    expect_still_serving(served);
}

struct TokenCase {
    const char *name;
    const char *server_token;
    const char *address_options;
    const char *environment; // RYN_TOKEN, null for unset
    int rc;
    const char *logged;
};

const TokenCase token_cases[] = {
    {"no_token_needed", "", "", nullptr, 0, "said hello"},
    {"token_in_address", "s3cret", "?token=s3cret", nullptr, 0, "said hello"},
    {"token_escaped", "a&b", "?token=a%26b", nullptr, 0, "said hello"},
    {"token_from_environment", "s3cret", "", "s3cret", 0, "said hello"},
    {"address_over_environment", "s3cret", "?token=s3cret", "wrong", 0, "said hello"},
    {"missing", "s3cret", "", nullptr, OXB_EOPTION, "refused: this server needs a token"},
    {"wrong", "s3cret", "?token=s3creT", nullptr, OXB_EOPTION, "refused: wrong token"},
    {"prefix", "s3cret", "?token=s3c", nullptr, OXB_EOPTION, "refused: wrong token"},
};

class Tokens : public ::testing::TestWithParam<TokenCase> {};

TEST_P(Tokens, AreCheckedAtTheHello) {
    const TokenCase &c = GetParam();
    serve::Options o;
    o.token = c.server_token;
    ServedBus served(o);
    if (c.environment != nullptr)
        setenv("RYN_TOKEN", c.environment, 1);
    else
        unsetenv("RYN_TOKEN");
    Client client(served.address(c.address_options));
    unsetenv("RYN_TOKEN");
    EXPECT_EQ(client.rc, c.rc) << oxb_translate_error(client.rc);
    EXPECT_TRUE(served.logged(c.logged));
    if (c.rc == 0) {
        EXPECT_TRUE(client.exchange(1, read(K, 1)).ack());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, Tokens, ::testing::ValuesIn(token_cases),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(ParseListen, AddressesAndRefusals) {
    struct Case {
        const char *text;
        bool ok;
        const char *host;
        uint16_t port;
    } cases[] = {
        {"127.0.0.1:7500", true, "127.0.0.1", 7500},
        {"[::1]:65535", true, "::1", 65535},
        {"localhost:80", true, "localhost", 80},
        {"127.0.0.1", false, "", 0},
        {":7500", false, "", 0},
        {"127.0.0.1:65536", false, "", 0},
        {"127.0.0.1:-1", false, "", 0},
        {"::1:7500", false, "", 0},
        {"[::1]7500", false, "", 0},
    };
    for (const Case &c : cases) {
        std::string host, why;
        uint16_t port = 1;
        EXPECT_EQ(serve::parse_listen(c.text, &host, &port, &why), c.ok) << c.text;
        if (c.ok) {
            EXPECT_EQ(host, c.host);
            EXPECT_EQ(port, c.port);
        } else {
            EXPECT_NE(why.find(c.text), std::string::npos) << why;
        }
    }
}

// The decoder takes whole frames only, however the bytes are cut.
TEST(FrameDecoder, TakesWholeFramesOnly) {
    std::vector<uint8_t> stream = frame(wire::FRAME_HELLO, hello_body("tok"));
    const auto send = frame(wire::FRAME_SEND, send_body(42, 3, probe));
    stream.insert(stream.end(), send.begin(), send.end());
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        serve::ClientFrame f;
        std::size_t used = 0;
        std::string why;
        const auto d = serve::next_frame(stream.data(), cut, &f, &used, &why);
        const std::size_t first = sizeof(wire::HelloBody) + 3 + 8;
        if (cut < first) {
            EXPECT_EQ(d, serve::Decoded::need_more) << cut;
            continue;
        }
        ASSERT_EQ(d, serve::Decoded::frame) << why;
        EXPECT_EQ(used, first);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(f.data), f.data_size), "tok");
        const auto d2 = serve::next_frame(stream.data() + used, cut - used, &f, &used, &why);
        if (cut < stream.size()) {
            EXPECT_EQ(d2, serve::Decoded::need_more);
        } else {
            ASSERT_EQ(d2, serve::Decoded::frame);
            EXPECT_EQ(f.id, 42u);
            EXPECT_EQ(f.axes, 3u);
            EXPECT_EQ(f.data_size, static_cast<uint32_t>(probe.size()));
        }
    }
}

} // namespace
} // namespace ryn::test
