// sim: addresses: the drives and faults that the options describe, named buses, the bus
// description file, and every bad option refused with a message that names it.
#include <fstream>

#include "bus_fixture.hpp"
#include "ryn/sup.h"

namespace {

using namespace ryn::test;
namespace wire = ryn::wire;

struct Shape {
    const char *address;
    uint64_t present;
    int axis; // a drive to look at
    uint32_t product, version, card, card_version, serial;
};

const Shape shapes[] = {
    {"sim:", DEFAULT_AXES, 0, 32, 0x03128100, 0, 0, 10001},
    {"sim:", DEFAULT_AXES, 1, 32, 0x03128100, 0x21, 0x01028000, 10002},
    {"sim:", DEFAULT_AXES, 2, 34, 0x03128100, 0, 0, 10003},
    {"sim:", DEFAULT_AXES, 3, 32, 0x03208000, 0x22, 0x02008000, 10004},
    {"sim:", DEFAULT_AXES, 63, 51, 0x02018000, 0, 0, 50001},
    {"sim:axes=0-2", 0x7, 1, 32, 0x03128100, 0, 0, 10002},
    {"sim:axes=5,63", axis(5) | AXIS63, 63, 51, 0x02018000, 0, 0, 50001},
    {"sim:axes=1;product=ORX-D34", 0x2, 1, 34, 0x03128100, 0, 0, 10002},
    {"sim:axes=0;product=33;version=3.12B", 0x1, 0, 33, 0x03128100, 0, 0, 10001},
    {"sim:axes=0;ext=IOX-8", 0x1, 0, 32, 0x03128100, 0x21, 0x01028000, 10001},
    {"sim:axes=0;ext=0x22", 0x1, 0, 32, 0x03128100, 0x22, 0x02008000, 10001},
    {"sim:axes=0,63;product=orx-m48", axis(0) | AXIS63, 63, 48, 0x01308000, 0, 0, 50001},
    {"sim:product=ORX-D35", DEFAULT_AXES, 3, 35, 0x03128100, 0, 0, 10004},
    {"sim:axes=0;;", 0x1, 0, 32, 0x03128100, 0, 0, 10001},
};

class Shapes : public BusTest, public ::testing::WithParamInterface<Shape> {};

TEST_P(Shapes, OptionsDescribeTheDrives) {
    const Shape &s = GetParam();
    OXB_BUS *b = bus_of(open(s.address));
    uint64_t present = 0;
    ASSERT_EQ(oxb_get_present_axes(b, &present), 0);
    EXPECT_EQ(present, s.present);
    wire::DriveInfo d{};
    d.size = 76;
    ASSERT_EQ(oxb_get_drive_info(b, s.axis, &d), 0);
    EXPECT_EQ(d.size, 76u);
    EXPECT_EQ(d.product, s.product);
    EXPECT_EQ(d.version, s.version);
    EXPECT_EQ(d.serial, s.serial);
    wire::ExtInfo e{};
    e.size = 20;
    ASSERT_EQ(oxb_get_ext_info(b, s.axis, &e), 0);
    EXPECT_EQ(e.product, s.card);
    EXPECT_EQ(e.version, s.card_version);
    wire::BusInfo info{12, 0xFFFF, 0xFFFF};
    ASSERT_EQ(oxb_get_bus_info(b, 0, &info), 0);
    EXPECT_EQ(info.flags, 0u);
    EXPECT_EQ(info.reserved, 0u);
}

INSTANTIATE_TEST_SUITE_P(Addresses, Shapes, ::testing::ValuesIn(shapes),
                         [](const auto &info) { return "case" + std::to_string(info.index); });

TEST_F(BusTest, FaultOptionsSetTheFaults) {
    OXB_BUS *b =
        bus_of(open("sim:answer_ms=100;latency_us=5;drop=0.5;nack=0.25;detach_after=3;seed=7"));
    OXBSIM_FAULTS f{};
    ASSERT_EQ(oxbsim_get_faults(b, &f), 0);
    EXPECT_EQ(f.answer_ms, 100u);
    EXPECT_EQ(f.latency_us, 5u);
    EXPECT_EQ(f.drop, 0.5);
    EXPECT_EQ(f.nack, 0.25);
    EXPECT_EQ(f.detach_after, 3u);
    EXPECT_EQ(f.seed, 7u);
    ASSERT_EQ(oxbsim_get_faults(bus_of(open("sim:")), &f), 0);
    EXPECT_EQ(f.answer_ms, 500u) << "the default answer time";
    EXPECT_EQ(f.drop, 0.0);
}

std::string write_file(const std::string &name, const std::string &text) {
    const std::string path = ::testing::TempDir() + name;
    std::ofstream(path) << text;
    return path;
}

TEST_F(BusTest, BusDescriptionFile) {
    const std::string path = write_file("oxb_bus.json", R"({"drives": [
        {"axis": 4, "product": "ORX-D32", "version": "3.10A", "card": "IOX-8", "serial": 777},
        {"axis": 63, "product": 49},
        {"axis": 9, "product": "ORX-D33", "card": 0, "boot_revision": 5}]})");
    OXB_BUS *b = bus_of(open("sim:config=" + path));
    uint64_t present = 0;
    ASSERT_EQ(oxb_get_present_axes(b, &present), 0);
    EXPECT_EQ(present, axis(4) | axis(9) | AXIS63);
    wire::DriveInfo d{};
    d.size = 76;
    ASSERT_EQ(oxb_get_drive_info(b, 4, &d), 0);
    EXPECT_EQ(d.version, 0x03108000u);
    EXPECT_EQ(d.serial, 777u);
    d.size = 76;
    ASSERT_EQ(oxb_get_drive_info(b, 9, &d), 0);
    EXPECT_EQ(d.boot_revision, 5u);
    EXPECT_EQ(d.serial, 10010u);
    d.size = 76;
    ASSERT_EQ(oxb_get_drive_info(b, 63, &d), 0);
    EXPECT_EQ(d.product, 49u);
    wire::ExtInfo e{};
    e.size = 20;
    ASSERT_EQ(oxb_get_ext_info(b, 4, &e), 0);
    EXPECT_EQ(e.product, 0x21u);
}

TEST_F(BusTest, NamedBusIsSharedWhileOpen) {
    OXB_PORT *a = open("sim:name=shared;axes=0");
    OXB_PORT *b = open("sim:name=shared");
    OXB_PORT *c = open("sim:axes=0;name=shared");
    EXPECT_EQ(bus_of(a), bus_of(b));
    EXPECT_EQ(bus_of(a), bus_of(c));
    EXPECT_NE(bus_of(a), bus_of(open("sim:axes=0"))) << "without a name, a bus of its own";
    exchange(a, axis(0), assign(X, 3, 33));
    EXPECT_EQ(memory(b, 0, X, 3), 33u);

    OXB_PORT *other = nullptr;
    EXPECT_EQ(oxb_open("sim:name=shared;axes=1", &other), OXB_EOPTION);
    EXPECT_NE(std::string(oxb_translate_error(OXB_EOPTION)).find("name=shared"), std::string::npos);

    for (OXB_PORT *&p : ports_)
        oxb_close(&p);
    ports_.clear();
    OXB_PORT *fresh = open("sim:name=shared;axes=1");
    uint64_t present = 0;
    ASSERT_EQ(oxb_get_present_axes(bus_of(fresh), &present), 0);
    EXPECT_EQ(present, axis(1)) << "the name ended with its last port";
}

struct BadAddress {
    const char *address;
    int code;
    const char *named; // what the message must name
};

const BadAddress bad_addresses[] = {
    {"sym:", OXB_EADDRESS, "sym:"},
    {"tcp://localhost", OXB_EADDRESS, "tcp://HOST:PORT"},
    {"tcp://:7000", OXB_EADDRESS, "host is missing"},
    {"tcp://localhost:0", OXB_EADDRESS, "port"},
    {"tcp://localhost:70000", OXB_EADDRESS, "port"},
    {"tcp://[::1", OXB_EADDRESS, "[ADDRESS]:PORT"},
    {"tcp://localhost:7000?bogus=1", OXB_EOPTION, "bogus=1"},
    {"tcp://localhost:7000?token=a&token=b", OXB_EOPTION, "given twice"},
    {"tcp://localhost:7000?token=%4", OXB_EOPTION, "token=%4"},
    {"tcp://localhost:7000?timeout_ms=0", OXB_EOPTION, "timeout_ms=0"},
    {"tcp://127.0.0.1:1?timeout_ms=500", OXB_ELOST, "cannot connect"},
    {"sim:bogus=1", OXB_EOPTION, "bogus=1"},
    {"sim:axes", OXB_EOPTION, "axes"},
    {"sim:axes=", OXB_EOPTION, "axes="},
    {"sim:axes=3-1", OXB_EOPTION, "axes=3-1"},
    {"sim:axes=0,", OXB_EOPTION, "axes=0,"},
    {"sim:axes=a", OXB_EOPTION, "axes=a"},
    {"sim:axes=0;axes=1", OXB_EOPTION, "axes"},
    {"sim:product=40", OXB_EOPTION, "product=40"},
    {"sim:axes=0;product=ORX-M51", OXB_EOPTION, "product=ORX-M51"},
    {"sim:version=3.99A", OXB_EOPTION, "version=3.99A"},
    {"sim:version=abc", OXB_EOPTION, "version=abc"},
    {"sim:axes=0;product=ORX-L1;ext=ENC-2", OXB_EOPTION, "ext=ENC-2"},
    {"sim:ext=XYZ", OXB_EOPTION, "ext=XYZ"},
    {"sim:axes=63;ext=IOX-8", OXB_EOPTION, "ext=IOX-8"},
    {"sim:drop=1.5", OXB_EOPTION, "drop=1.5"},
    {"sim:drop=nan", OXB_EOPTION, "drop=nan"},
    {"sim:nack=x", OXB_EOPTION, "nack=x"},
    {"sim:latency_us=-1", OXB_EOPTION, "latency_us=-1"},
    {"sim:answer_ms=1e3", OXB_EOPTION, "answer_ms=1e3"},
    {"sim:detach_after=x", OXB_EOPTION, "detach_after=x"},
    {"sim:seed=99999999999999999999", OXB_EOPTION, "seed="},
    {"sim:name=", OXB_EOPTION, "name="},
    {"sim:config=/nonexistent/bus.json", OXB_ECONFIG, "config=/nonexistent/bus.json"},
    {"sim:config=x;axes=0", OXB_EOPTION, "axes=0"},
};

class BadAddresses : public ::testing::TestWithParam<BadAddress> {};

TEST_P(BadAddresses, AreRefusedNamingTheOption) {
    const BadAddress &c = GetParam();
    OXB_PORT *p = nullptr;
    sup_trace_clear();
    EXPECT_EQ(oxb_open(c.address, &p), c.code);
    EXPECT_EQ(p, nullptr) << "nothing half-open";
    const std::string message = oxb_translate_error(c.code);
    EXPECT_NE(message.find(c.named), std::string::npos) << message;
    ASSERT_GE(sup_trace_count(), 1);
    SUP_FRAME frame;
    ASSERT_EQ(sup_trace_get(0, &frame), 0);
    EXPECT_EQ(frame.code, c.code);
    EXPECT_EQ(message, frame.message);
}

INSTANTIATE_TEST_SUITE_P(Addresses, BadAddresses, ::testing::ValuesIn(bad_addresses),
                         [](const auto &info) { return "case" + std::to_string(info.index); });

TEST(BadConfig, FilesAreRefusedNamingThePlace) {
    const struct {
        const char *text;
        const char *named;
    } cases[] = {
        {"{", "not valid JSON"},
        {"[]", "JSON object"},
        {R"({"drives": [], "faults": 1})", "\"faults\""},
        {R"({"drive": []})", "\"drive\""},
        {R"({})", "\"drives\""},
        {R"({"drives": [{"product": "ORX-D32"}]})", "drives[0]"},
        {R"({"drives": [{"axis": 64, "product": 32}]})", "drives[0].axis"},
        {R"({"drives": [{"axis": 1, "product": 32}, {"axis": 1, "product": 32}]})", "drives[1]"},
        {R"({"drives": [{"axis": 1, "product": "ORX-Q1"}]})", "drives[0].product"},
        {R"({"drives": [{"axis": 1, "product": 32, "version": "9.99A"}]})", "drives[0]"},
        {R"({"drives": [{"axis": 1, "product": 32, "version": 312}]})", "drives[0].version"},
        {R"({"drives": [{"axis": 1, "product": 32, "card": "ABC"}]})", "drives[0].card"},
        {R"({"drives": [{"axis": 1, "product": 1, "card": "ENC-2"}]})", "does not fit"},
        {R"({"drives": [{"axis": 1, "product": 32, "serial": -3}]})", "drives[0].serial"},
        {R"({"drives": [{"axis": 1, "product": 32, "colour": 1}]})", "\"colour\""},
    };
    for (const auto &c : cases) {
        const std::string path = write_file("oxb_bad.json", c.text);
        OXB_PORT *p = nullptr;
        EXPECT_EQ(oxb_open(("sim:config=" + path).c_str(), &p), OXB_ECONFIG) << c.text;
        EXPECT_EQ(p, nullptr);
        const std::string message = oxb_translate_error(OXB_ECONFIG);
        EXPECT_NE(message.find(c.named), std::string::npos) << c.text << " -> " << message;
        EXPECT_NE(message.find("config="), std::string::npos) << message;
    }
}

TEST(Messages, FixedTextOutsideAFailedOpen) {
    EXPECT_STREQ(oxb_translate_error(OXB_ELOCKED), "bus locked by another thread");
    EXPECT_STREQ(oxb_translate_error(-299), "unknown error");
}

} // namespace
