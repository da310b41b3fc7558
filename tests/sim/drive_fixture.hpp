// A simulated drive and a translator that turns command text into the records it executes.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "ryn/tra.h"
#include "ryn/vok.h"
#include "sim/drive.hpp"
#include "sim/values.hpp"

namespace ryn::test {

constexpr uint32_t V312B = 0x03128100;
constexpr uint32_t V201A = 0x02018000;

// One record buffer of the largest size.
struct Buffer {
    alignas(8) uint8_t bytes[wire::RECORD_MAX_SIZE] = {};
    wire::RecordView view() { return {bytes}; }
    wire::ConstRecordView cview() const { return {bytes}; }
};

// What a drive answered: acknowledged or refused (0x4000 set, no acknowledge), and the answer.
struct Answer {
    bool ack = false;
    bool status = false;
    Buffer record;
    // Value of answer slot i.
    uint64_t value(int i) const { return record.cview().value64(i); }
    uint32_t tag(int i) const { return record.cview().tag(i); }
};

class DriveTest : public ::testing::Test {
  protected:
    void SetUp() override { make_drive(sim::Identity{}); }
    void TearDown() override { tra_destroy(&tra_); }

    // A drive of another configuration, with a translator that knows it on axis 0 (and axis 63).
    void make_drive(const sim::Identity &identity) {
        tra_destroy(&tra_);
        drive_.reset();
        ASSERT_EQ(sim::Drive::create(identity, 0, &drive_), 0);
        const uint32_t card = identity.ext_product;
        ASSERT_EQ(tra_create_direct_traductor_o2(&tra_, identity.product, identity.version, card,
                                                 identity.ext_version, 51, V201A, 0, 0, 0),
                  0);
    }

    // The record of one line of command text; fails the test when the text does not translate.
    Buffer record(const std::string &text) {
        Buffer b;
        uint32_t count = 0;
        uint64_t mask = 0;
        const int rc = tra_oxcom_translate_cmd_from_ascii_ex(
            tra_, reinterpret_cast<TRA_RECORD *>(b.bytes), wire::RECORD_MAX_SLOTS, &count, &mask,
            text.c_str());
        EXPECT_EQ(rc, 0) << text;
        return b;
    }

    Answer execute(const Buffer &request) {
        Answer a;
        drive_->execute(request.cview(), a.record.view(), now_us_);
        const uint32_t word = a.record.cview().word();
        a.ack = (word & wire::HEADER_ACK) != 0;
        a.status = (word & wire::HEADER_STATUS) != 0;
        EXPECT_NE(a.ack, a.status) << "an answer is either acknowledged or refused";
        return a;
    }
    Answer execute(const std::string &text) { return execute(record(text)); }

    // The answer to a request as the translator writes it ("K1.0" reads back as "K1.0=5"); the
    // text of the refused record when the drive refused.
    std::string ask(const std::string &text) {
        const Buffer q = record(text);
        const Answer a = execute(q);
        char out[1024] = {};
        const int rc =
            a.ack ? tra_oxcom_translate_rqs_to_ascii_ex(
                        tra_, reinterpret_cast<const TRA_RECORD *>(q.bytes),
                        reinterpret_cast<const TRA_RECORD *>(a.record.bytes), 1, out, sizeof out)
                  : -1;
        if (!a.ack) return "refused";
        EXPECT_EQ(rc, 0) << text;
        return out;
    }

    // Raw memory of one element, read directly.
    uint64_t raw(uint32_t kind, uint32_t index, uint32_t sub = 0) const {
        uint64_t v = 0;
        EXPECT_EQ(drive_->read(kind, index, sub, &v), 0);
        return v;
    }

    // Every element of the drive's memory, in the order of the dictionary's types and indexes.
    std::vector<uint64_t> snapshot() const {
        std::vector<uint64_t> all;
        const sim::Identity &id = drive_->identity();
        VOK_DICT *d = nullptr;
        EXPECT_EQ(vok_open(&d, id.product, id.version, id.ext_product, id.ext_version), 0);
        for (uint32_t kind = 0; kind < VOK_TYPE_COUNT; ++kind) {
            const auto count = static_cast<uint32_t>(vok_get_register_count(d, kind));
            const auto subcount = static_cast<uint32_t>(vok_get_subindex_count(d, kind));
            for (uint32_t index = 0; index < count; ++index)
                for (uint32_t sub = 0; sub < subcount; ++sub) {
                    uint64_t v = 0;
                    if (drive_->read(kind, index, sub, &v) == 0) all.push_back(v);
                }
        }
        uint64_t accumulator = 0;
        EXPECT_EQ(drive_->read(1, 65535, 0, &accumulator), 0);
        all.push_back(accumulator);
        vok_close(&d);
        return all;
    }

    std::unique_ptr<sim::Drive> drive_;
    TRA *tra_ = nullptr;
    uint64_t now_us_ = 1000;
};

// Lines of command text run in order, each acknowledged, then a request and the answer the
// translator writes for it.
struct ScriptCase {
    const char *lines; // separated by ";"
    const char *request;
    const char *answer;
};

class Scripts : public DriveTest, public ::testing::WithParamInterface<ScriptCase> {};

} // namespace ryn::test
