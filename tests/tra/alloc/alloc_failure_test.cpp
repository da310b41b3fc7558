// Allocation failure: the Nth allocation of a whole creation and translation fails, for every N.
// Each failure is the translator's system error with its trace, nothing leaks, and the translator
// works as before once memory is there again.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "ryn/sup.h"
#include "ryn/tra.h"
#include "ryn/vok.h"

namespace {

// The allocation seam: while armed, the allocation that brings the countdown to 0 fails.
std::atomic<long> g_countdown{0};
std::atomic<bool> g_fired{false};
std::atomic<long> g_live{0}; // blocks allocated and not yet freed

void *allocate(std::size_t n) noexcept {
    if (g_countdown.load(std::memory_order_relaxed) > 0 && g_countdown.fetch_sub(1) == 1) {
        g_fired = true;
        return nullptr;
    }
    void *p = std::malloc(n != 0 ? n : 1);
    if (p != nullptr) g_live.fetch_add(1, std::memory_order_relaxed);
    return p;
}
// Kept out of line: the compiler would otherwise pair operator new with free and warn.
[[gnu::noinline]] void release(void *p) noexcept {
    if (p == nullptr) return;
    g_live.fetch_sub(1, std::memory_order_relaxed);
    std::free(p);
}

} // namespace

void *operator new(std::size_t n) {
    if (void *p = allocate(n)) return p;
    throw std::bad_alloc();
}
void *operator new[](std::size_t n) {
    if (void *p = allocate(n)) return p;
    throw std::bad_alloc();
}
void *operator new(std::size_t n, const std::nothrow_t &) noexcept {
    return allocate(n);
}
void *operator new[](std::size_t n, const std::nothrow_t &) noexcept {
    return allocate(n);
}
void operator delete(void *p) noexcept {
    release(p);
}
void operator delete[](void *p) noexcept {
    release(p);
}
void operator delete(void *p, std::size_t) noexcept {
    release(p);
}
void operator delete[](void *p, std::size_t) noexcept {
    release(p);
}
void operator delete(void *p, const std::nothrow_t &) noexcept {
    release(p);
}
void operator delete[](void *p, const std::nothrow_t &) noexcept {
    release(p);
}

namespace {

// The test's own bookkeeping allocates outside the countdown.
struct Paused {
    long kept = g_countdown.exchange(0);
    ~Paused() { g_countdown = kept; }
};

// The small test family keeps each run's table rebuild short: products 32 and 34, the card 33
// and the controller 51, every one at version 1.00A.
constexpr uint32_t V100A = 0x01008000, CARD = 33;

// The bytes of a record of `count` slots in hexadecimal.
std::string hex(const unsigned char *record, uint32_t count) {
    std::string text;
    char byte[3];
    for (uint32_t i = 0; i < TRA_RECORD_SIZE(count) && count <= TRA_RECORD_MAX_SLOTS; ++i) {
        std::snprintf(byte, sizeof byte, "%02x", record[i]);
        text += byte;
    }
    return text;
}

// One session of an application: every step's output is kept, to be compared with a run that
// had all the memory it wanted.
struct Session {
    TRA *tra = nullptr;
    std::vector<std::string> outputs;

    unsigned char record[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)] = {};
    uint32_t count = 0;
    uint64_t axes = 0;

    // A line to a record; with `back`, the record back to text as the step's output.
    int translate(const char *line, bool back = false) {
        int rc = tra_oxcom_translate_cmd_from_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(record),
                                                       TRA_RECORD_MAX_SLOTS, &count, &axes, line);
        char text[512] = {};
        if (rc == 0 && back)
            rc = tra_oxcom_translate_cmd_to_ascii_ex(tra, reinterpret_cast<TRA_RECORD *>(record),
                                                     axes, text, sizeof text);
        Paused paused;
        if (rc == 0)
            outputs.push_back(back ? text : hex(record, count) + " axes " + std::to_string(axes));
        return rc;
    }
};

struct Step {
    const char *name;
    std::function<int(Session &)> run;
};

// A creation of each role and what a translation does with the heap: the first rebuild of the
// tables, a long line, lists, records back to text.
const std::vector<Step> &steps() {
    static const std::vector<Step> list = {
        {"create a direct translator with a card and a controller",
         [](Session &s) {
             return tra_create_direct_traductor_o2(&s.tra, 32, V100A, CARD, V100A, 51, V100A, 0, 0,
                                                   TRA_FUSE_ALIASES | TRA_FDESCRIPTIONS);
         }},
        {"first translation", [](Session &s) { return s.translate("K1.0=2"); }},
        {"card register and commands",
         [](Session &s) {
             int rc = s.translate("K400.0=1");
             if (rc == 0) rc = s.translate("JOG.1=5");
             return rc != 0 ? rc : s.translate("CLX.(0,1)");
         }},
        {"a line longer than the builder's own buffer",
         [](Session &s) {
             static const std::string line = "K2.0=3 ; " + std::string(3000, 'x');
             return s.translate(line.c_str());
         }},
        {"record to text", [](Session &s) { return s.translate("K1.(0,1)=5", true); }},
        {"destroy", [](Session &s) { return tra_destroy(&s.tra); }},
        {"create a register translator",
         [](Session &s) {
             return tra_create_register_traductor_o(&s.tra, 34, V100A, 0, 0, TRA_FDRIVE_ONLY);
         }},
        {"destroy the register translator", [](Session &s) { return tra_destroy(&s.tra); }},
    };
    return list;
}

std::string formatted_trace() {
    char text[4096];
    sup_trace_format(text, sizeof text);
    return text;
}

// Runs every step with the Nth allocation failing (0: none); returns whether the failure fired.
// A step that meets the failure and fails must answer the system error with its trace, leave no
// half-created translator, and succeed when run again; the session ends there.
bool run(long n, std::vector<std::string> *outputs) {
    Session s;
    bool fired = false;
    g_fired = false;
    g_countdown = n;
    for (const Step &step : steps()) {
        sup_trace_clear();
        int rc = step.run(s);
        if (!g_fired.exchange(false)) {
            EXPECT_EQ(rc, 0) << "allocation " << n << ": " << step.name << "\n"
                             << formatted_trace();
            continue;
        }
        fired = true;
        g_countdown = 0;
        // A failure the standard library absorbs (a sort goes on without its scratch buffer)
        // changes nothing: the outputs are compared with the reference run at the end.
        if (rc == 0) continue;
        EXPECT_EQ(rc, TRA_ESYSTEM) << "allocation " << n << ": " << step.name << "\n"
                                   << formatted_trace();
        EXPECT_NE(formatted_trace().find("system error"), std::string::npos)
            << "allocation " << n << ": " << step.name << "\n"
            << formatted_trace();
        if (std::string(step.name).rfind("create", 0) == 0) {
            EXPECT_EQ(s.tra, nullptr) << "no half-created translator";
        }
        sup_trace_clear();
        EXPECT_EQ(step.run(s), 0) << "allocation " << n << ", again: " << step.name << "\n"
                                  << formatted_trace();
        break; // the steps after it were run with memory before
    }
    g_countdown = 0;
    if (s.tra != nullptr) tra_destroy(&s.tra);
    *outputs = std::move(s.outputs);
    return fired;
}

TEST(AllocationFailure, EveryAllocationOfCreationAndTranslation) {
    ASSERT_EQ(vok_load_family_file(RYN_TEST_DATA "/vok/odd_family.json"), 0);
    std::vector<std::string> expected, outputs;
    // Warm the dictionary library's caches, then take the reference run.
    ASSERT_FALSE(run(0, &expected));
    ASSERT_FALSE(run(0, &expected));
    ASSERT_EQ(expected.size(), 6u);

    long n = 1;
    for (; n < 200000 && !::testing::Test::HasFailure(); ++n) {
        const long before = g_live.load();
        const bool fired = run(n, &outputs);
        EXPECT_TRUE(outputs.size() <= expected.size() &&
                    std::equal(outputs.begin(), outputs.end(), expected.begin()))
            << "allocation " << n << ": another result than with memory";
        std::vector<std::string>().swap(outputs);
        EXPECT_EQ(g_live.load(), before) << "allocation " << n << ": blocks left allocated";
        if (!fired) break;
    }
    EXPECT_GT(n, 100) << "the sweep met the allocations of a whole session";
    std::printf("allocation failure swept over %ld allocations\n", n - 1);
}

} // namespace
