// The tool's core: the lint pass checked against what the translator really sends, the
// explanations of refused lines, escaping of echoed input, the buffered output and the line
// reader.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "explain.hpp"
#include "input.hpp"
#include "lint.hpp"
#include "output.hpp"
#include "ryn/sup.h"
#include "ryn/tra.h"
#include "ryn/vok.h"
#include "text_safety.hpp"

namespace {

using namespace ryn::cli;

// A translator and the dictionary of the default drive (ORX-D32 at its default version).
class Drive : public ::testing::Test {
  protected:
    void SetUp() override {
        const uint32_t version = vok_get_default_version(32);
        ASSERT_EQ(tra_create_direct_traductor_o(&tra, 32, version, 0, 0, 0), 0);
        ASSERT_EQ(vok_open(&dict, 32, version, 0, 0), 0);
    }
    void TearDown() override {
        tra_destroy(&tra);
        vok_close(&dict);
    }
    // Translates and lints a line; the record stays in `record`.
    std::vector<Warning> lint(const std::string &line) {
        uint32_t count = 0;
        uint64_t mask = 0;
        record.fill(0);
        rc = tra_oxcom_translate_cmd_from_ascii_ex(
            tra, reinterpret_cast<TRA_RECORD *>(record.data()), TRA_RECORD_MAX_SLOTS, &count, &mask,
            line.c_str());
        slots = static_cast<int32_t>(count);
        return lint_line(dict, line, rc == 0 ? Translated{record.data(), slots} : Translated{});
    }
    int32_t value32(int slot) const {
        int32_t v;
        std::memcpy(&v, record.data() + 8 + 16 * slot + 8, 4);
        return v;
    }
    int64_t value64(int slot) const {
        int64_t v;
        std::memcpy(&v, record.data() + 8 + 16 * slot + 8, 8);
        return v;
    }

    TRA *tra = nullptr;
    VOK_DICT *dict = nullptr;
    alignas(8) std::array<uint8_t, TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)> record{};
    int rc = 0;
    int slots = 0;
};

TEST_F(Drive, EachTrapIsNamedAndLinesWithoutTrapsAreQuiet) {
    struct Row {
        const char *line;
        const char *trap; // nullptr: no warning
        const char *says; // a part of the message
    } rows[] = {
        {"PWR.()=1", "empty-axis", "axes (0)"},
        {"K12.(1,)=1", "empty-axis", "axes (1,0)"},
        {"K12.(,1)=1", "empty-axis", "axes (0,1)"},
        {"K12.(0,1)=1", nullptr, ""},
        {"K31.0=\"192.168.0.300\"", "ip-group", "192.168.0.44"},
        {"K31.0=\"192.168.0.255\"", nullptr, ""},
        {"X1.0=-2147483649", "int-width", "sent as 2147483647"},
        {"X1.0=-2147483648", nullptr, ""},
        {"X1.0=0xFFFFFFFF", nullptr, ""},
        {"XL1.0=-18446744073709551615L", "int-width", "sent as 1L"},
        {"K30.0=\"axis-x\"", "upper-case", "\"AXIS-X\""},
        {"K30.0=\"AXIS-X\"", nullptr, ""},
        {"XF1.0=1e39F", "float-overflow", "infinity"},
        {"XF1.0=3e38F", nullptr, ""},
        {"K1.0=15 00", "inner-blank", "'1500'"},
        {"M7.0 1", "inner-blank", "'M7.01'"},
        {"PWR.0 = 1 ; a comment with blanks", nullptr, ""},
        {"MVE.1=100,500,2000", "param-type", "write 100L"},
        {"MVE.1=100L,500F,2000D", nullptr, ""},
        {"MVE.1", "missing-params", "declares 3 parameters but is given 0"},
        {"[MASK:1,GATE:9,CMD:1,REC:32]", "gate-bits", "sent as 1"},
        {"[MASK:1,GATE:7,CMD:1,REC:32]", nullptr, ""},
        {"K12.0=2", nullptr, ""},
    };
    for (const Row &r : rows) {
        const std::vector<Warning> w = lint(r.line);
        ASSERT_EQ(rc, 0) << r.line;
        if (r.trap == nullptr) {
            EXPECT_TRUE(w.empty()) << r.line << ": " << (w.empty() ? "" : w[0].message);
            continue;
        }
        ASSERT_FALSE(w.empty()) << r.line;
        EXPECT_STREQ(w[0].trap, r.trap) << r.line;
        EXPECT_NE(w[0].message.find(r.says), std::string::npos) << r.line << ": " << w[0].message;
    }
}

// What a warning says is sent is what the record holds.
TEST_F(Drive, WarningsTellWhatTheRecordHolds) {
    lint("X1.0=-2147483649");
    EXPECT_EQ(value32(1), 2147483647);
    lint("XL1.0=-18446744073709551615L");
    EXPECT_EQ(value64(1), 1);
    lint("K31.0=\"192.168.0.300\"");
    EXPECT_EQ(static_cast<uint32_t>(value32(1)), (192u << 24) | (168u << 16) | 44u);
    lint("K1.0=15 00");
    EXPECT_EQ(value32(1), 1500);
    lint("PWR.()=1");
    uint64_t mask = 0;
    uint32_t count = 0;
    tra_oxcom_translate_cmd_from_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(record.data()),
                                          TRA_RECORD_MAX_SLOTS, &count, &mask, "K12.(1,)=1");
    EXPECT_EQ(mask, 3u);
}

TEST_F(Drive, ExplanationsSayWhatIsAllowed) {
    struct Row {
        const char *line;
        const char *says;
    } rows[] = {
        {"K1.0=2000000", "takes 0 .. 1000000"},
        {"K12.0=7", "2 VELOCITY"},
        {"M7.0=1", "M7 (POS_ACT) is read-only"},
        {"MODEE.0=1", "the closest: MODE"},
        {"K1.0=1,2", "K1 (POS_KP) has 1 element; 2 values given"},
        {"K5.0=1,2,3,4", "has 3 elements; 4 values given"},
        {"K30.0=\"123456789012345678901234567890123\"", "holds 32 characters"},
        {"K12.0=2.0F", "write an integer (2)"},
        {"K1.0=\"abc\"", "holds numbers, not text"},
        {"K1.0=4294967296", "write 4294967296L"},
        {"M7.0,K1.0,K12.0,K2.0,K3.0", "names 5"},
        {"XD1.0=1e999D", "beyond the 64-bit doubles"},
        {"PWR.0=1,2", "PWR takes 1 parameter; 2 given"},
        {"[MASK:1,GATE:0,CMD:999,REC:32]", "CMD field has no room for 999"},
    };
    for (const Row &r : rows) {
        EXPECT_NE(lint(r.line).size(), 99u);
        ASSERT_NE(rc, 0) << r.line;
        const std::vector<std::string> e = explain_failure(dict, r.line, rc);
        std::string all;
        for (const std::string &s : e)
            all += s + "\n";
        EXPECT_NE(all.find(r.says), std::string::npos) << r.line << ":\n" << all;
    }
}

TEST(TextSafety, EchoesAreCutAndEscaped) {
    struct Row {
        std::string text;
        std::string shown;
    } rows[] = {
        {"K12.0=2", "K12.0=2"},
        {"a\tb", "a\tb"},
        {std::string("a\0b", 3), "a\\x00b"},
        {"\x1b[2J", "\\x1B[2J"},
        {"caf\xe9", "caf\\xE9"},
        {"caf\xc3\xa9", "caf\xc3\xa9"},
        {"\xed\xa0\x80", "\\xED\\xA0\\x80"}, // a surrogate is no valid UTF-8
        {std::string(130, 'x'), std::string(120, 'x') + "... (130 bytes in all)"},
    };
    for (const Row &r : rows)
        EXPECT_EQ(shown(r.text), r.shown) << r.text;
    bool escaped = false;
    EXPECT_EQ(utf8_or_escaped("caf\xc3\xa9", escaped), "caf\xc3\xa9");
    EXPECT_FALSE(escaped);
    EXPECT_EQ(utf8_or_escaped("a\\b\xff", escaped), "a\\\\b\\xFF");
    EXPECT_TRUE(escaped);
}

// The writes a stream makes, recorded instead of made.
std::vector<std::size_t> writes;
int fail_after = -1;
long record_write(int, const void *, std::size_t size) {
    if (fail_after >= 0 && static_cast<int>(writes.size()) >= fail_after) {
        errno = ENOSPC;
        return -1;
    }
    writes.push_back(size);
    return static_cast<long>(size);
}

TEST(Output, ManyLinesMakeFewWritesAndAFailureIsKept) {
    writes.clear();
    fail_after = -1;
    {
        Stream s(99, "test", record_write);
        for (int i = 0; i < 200000; ++i)
            s << "ryn: error -562 (parameter range error) in 'K1.0=2000000'" << '\n';
        EXPECT_TRUE(s.flush());
    }
    std::size_t total = 0;
    for (std::size_t n : writes)
        total += n;
    EXPECT_EQ(total, 200000u * 58u);
    EXPECT_LE(writes.size(), total / (64 * 1024) + 1);

    writes.clear();
    fail_after = 1;
    Stream s(99, "test", record_write);
    for (int i = 0; i < 10000; ++i)
        s << "0123456789012345678901234567890123456789\n";
    EXPECT_FALSE(s.flush());
    EXPECT_TRUE(s.failed());
    EXPECT_EQ(s.error(), ENOSPC);
    fail_after = -1;
}

// Feeds `bytes` through a temporary file to a line reader and returns its lines.
std::vector<std::string> read_lines(const std::string &bytes,
                                    std::vector<std::size_t> *nuls = nullptr) {
    std::FILE *file = std::tmpfile();
    EXPECT_NE(file, nullptr);
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    std::fflush(file);
    std::rewind(file);
    LineReader reader(fileno(file));
    std::vector<std::string> lines;
    std::string line;
    while (reader.next(line)) {
        lines.push_back(line);
        if (nuls != nullptr) nuls->push_back(reader.nul_column());
    }
    EXPECT_EQ(reader.error(), 0);
    std::fclose(file);
    return lines;
}

TEST(LineReader, MarksEndsAndNulBytes) {
    using V = std::vector<std::string>;
    EXPECT_EQ(read_lines("\xEF\xBB\xBFK12.0=2\nPWR.0=1\n"), (V{"K12.0=2", "PWR.0=1"}));
    EXPECT_EQ(read_lines("a\r\nb"), (V{"a", "b"}));
    EXPECT_EQ(read_lines("\xEF\xBB\xBF"), V{});
    EXPECT_EQ(read_lines("a\n\xEF\xBB\xBF"), (V{"a", "\xEF\xBB\xBF"})); // only at the start
    EXPECT_EQ(read_lines(""), V{});
    std::vector<std::size_t> nuls;
    const V lines = read_lines(std::string("K12.0=2\0K1.0=5\nok\n", 18), &nuls);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].size(), 14u);
    EXPECT_EQ(nuls, (std::vector<std::size_t>{8, 0}));
    // A line longer than one read.
    const std::string big(200000, 'x');
    EXPECT_EQ(read_lines(big + "\nend\n"), (V{big, "end"}));
}

TEST(LineReader, ADirectoryIsAReadError) {
    const int fd = open("/", O_RDONLY);
    ASSERT_GE(fd, 0);
    LineReader reader(fd);
    std::string line;
    EXPECT_FALSE(reader.next(line));
    EXPECT_EQ(reader.error(), EISDIR);
    close(fd);
}

} // namespace
