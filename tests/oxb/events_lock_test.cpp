// Events on the bus's own thread (present drives at registration, attach and detach, no call
// after unregistering) and the recursive bus lock.
#include <atomic>
#include <future>

#include "bus_fixture.hpp"

namespace {

using namespace ryn::test;

std::vector<int> axes_of(const std::vector<EventLog::Event> &events, int event) {
    std::vector<int> axes;
    for (const auto &e : events)
        if (e.event == event) axes.push_back(e.axis);
    return axes;
}

TEST_F(BusTest, RegistrationReportsThePresentDrivesBeforeReturning) {
    OXB_BUS *b = bus_of(open("sim:"));
    const struct {
        uint64_t axes;
        int selector;
        std::vector<int> reported;
    } cases[] = {
        {~0ull, OXB_EVENT_DRIVES, {0, 1, 2, 3, 63}},
        {0x3, OXB_EVENT_DRIVES, {0, 1}},
        {AXIS63 | axis(40), OXB_EVENT_DRIVES, {63}},
        {~0ull, 0, {}},
    };
    for (const auto &c : cases) {
        EventLog log;
        ASSERT_EQ(oxb_register_handler(b, &log, c.axes, 0, 0, c.selector, EventLog::handler, &log),
                  0);
        const auto events = log.snapshot(); // no waiting: they came before the call returned
        EXPECT_EQ(axes_of(events, OXB_EVENT_DRIVE_PRESENT), c.reported);
        for (const auto &e : events)
            EXPECT_NE(e.thread, std::this_thread::get_id()) << "runs on the bus's thread";
        EXPECT_EQ(oxb_register_handler(b, &log, c.axes, 0, 0, c.selector, EventLog::handler, &log),
                  OXB_EHANDLER);
        ASSERT_EQ(oxb_unregister_handler(b, &log), 0);
    }
}

TEST_F(BusTest, AttachAndDetachRaiseOneEventEachHandledBeforeTheyReturn) {
    OXB_BUS *b = bus_of(open("sim:axes=0"));
    EventLog log;
    ASSERT_EQ(oxb_register_handler(b, &log, ~0ull, 0, 0, OXB_EVENT_DRIVES, EventLog::handler, &log),
              0);
    ASSERT_EQ(oxbsim_attach(b, 5, &default_drive), 0);
    ASSERT_EQ(log.snapshot().size(), 2u) << "the attach's event came before the call returned";
    ASSERT_EQ(oxbsim_detach(b, 0), 0);
    const auto events = log.snapshot();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[1].axis, 5);
    EXPECT_EQ(events[1].event, OXB_EVENT_DRIVE_PRESENT);
    EXPECT_EQ(events[2].axis, 0);
    EXPECT_EQ(events[2].event, OXB_EVENT_DRIVE_GONE);
    uint64_t present = 0;
    ASSERT_EQ(oxb_get_present_axes(b, &present), 0);
    EXPECT_EQ(present, axis(5));
    EXPECT_EQ(oxb_unregister_handler(b, &log), 0);
}

TEST_F(BusTest, AnAttachFromAHandlerDoesNotWaitForItself) {
    OXB_BUS *b = bus_of(open("sim:axes=0"));
    struct Chain {
        OXB_BUS *bus;
        EventLog log;
        int attached = -1; // what the handler's own attach returned
    } chain{b, {}};
    auto handler = [](OXB_BUS *bus, int axis, int event, void *context) {
        auto *c = static_cast<Chain *>(context);
        // The drive at 5 brings one at 6 along, from the bus's own thread.
        if (axis == 5 && event == OXB_EVENT_DRIVE_PRESENT)
            c->attached = oxbsim_attach(bus, 6, &default_drive);
        return EventLog::handler(bus, axis, event, &c->log);
    };
    ASSERT_EQ(oxb_register_handler(b, &chain, ~0ull, 0, 0, OXB_EVENT_DRIVES, handler, &chain), 0);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(oxbsim_attach(b, 5, &default_drive), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5))
        << "the handler's attach waited for the thread it runs on";
    EXPECT_EQ(chain.attached, 0);
    EXPECT_EQ(chain.log.pairs(3), (std::vector<std::pair<int, int>>{{0, OXB_EVENT_DRIVE_PRESENT},
                                                                    {5, OXB_EVENT_DRIVE_PRESENT},
                                                                    {6, OXB_EVENT_DRIVE_PRESENT}}));
    EXPECT_EQ(oxb_unregister_handler(b, &chain), 0);
}

TEST_F(BusTest, AnAttachWhoseHandlerHangsReturnsAfterItsWait) {
    OXB_BUS *b = bus_of(open("sim:axes=0"));
    struct Hang {
        std::promise<void> release;
        std::shared_future<void> released{release.get_future().share()};
    } hang;
    auto handler = [](OXB_BUS *, int axis, int, void *context) {
        if (axis == 5) static_cast<Hang *>(context)->released.wait_for(std::chrono::seconds(60));
        return 0;
    };
    ASSERT_EQ(oxb_register_handler(b, &hang, ~0ull, 0, 0, OXB_EVENT_DRIVES, handler, &hang), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(oxbsim_attach(b, 5, &default_drive), 0);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::seconds(9)) << "it waited for the handler";
    EXPECT_LT(waited, std::chrono::seconds(30)) << "but not for ever";
    hang.release.set_value();
    EXPECT_EQ(oxb_unregister_handler(b, &hang), 0);
}

// A handler that stays inside its call until released, to catch an unregister that does not wait.
struct SlowHandler {
    std::promise<void> entered;
    std::atomic<bool> inside{false};
    std::atomic<int> calls{0};
    std::atomic<bool> armed{false};
    static int handler(OXB_BUS *, int, int, void *context) {
        auto *h = static_cast<SlowHandler *>(context);
        ++h->calls;
        if (!h->armed.exchange(false)) return 0;
        h->inside = true;
        h->entered.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        h->inside = false;
        return 0;
    }
};

TEST_F(BusTest, UnregisterWaitsForARunningCallAndNoCallFollows) {
    OXB_BUS *b = bus_of(open("sim:axes=0-1"));
    SlowHandler slow;
    ASSERT_EQ(oxb_register_handler(b, &slow, ~0ull, 0, 0, 16, SlowHandler::handler, &slow), 0);
    slow.armed = true;
    ASSERT_EQ(oxbsim_detach(b, 0), 0);
    slow.entered.get_future().wait();
    ASSERT_EQ(oxb_unregister_handler(b, &slow), 0);
    EXPECT_FALSE(slow.inside) << "returned while the handler ran";
    const int calls = slow.calls;

    // A handler registered after it sees the next event; the removed one must not.
    EventLog log;
    ASSERT_EQ(oxb_register_handler(b, &log, ~0ull, 0, 0, 16, EventLog::handler, &log), 0);
    ASSERT_EQ(oxbsim_detach(b, 1), 0);
    log.wait_for(2);
    EXPECT_EQ(slow.calls, calls);
    EXPECT_EQ(oxb_unregister_handler(b, &log), 0);
}

struct Nested {
    OXB_BUS *bus;
    EventLog inner;
    int registered = 1;
    static int handler(OXB_BUS *bus, int, int, void *context) {
        auto *n = static_cast<Nested *>(context);
        if (n->registered == 1)
            n->registered =
                oxb_register_handler(bus, &n->inner, ~0ull, 0, 0, 16, EventLog::handler, &n->inner);
        return 0;
    }
};

TEST_F(BusTest, AHandlerMayRegisterAnotherWithoutDeadlock) {
    OXB_BUS *b = bus_of(open("sim:axes=2"));
    Nested n{b, {}, 1};
    ASSERT_EQ(oxb_register_handler(b, &n, ~0ull, 0, 0, 16, Nested::handler, &n), 0);
    EXPECT_EQ(n.registered, 0);
    EXPECT_EQ(axes_of(n.inner.snapshot(), OXB_EVENT_DRIVE_PRESENT), std::vector<int>{2});
    EXPECT_EQ(oxb_unregister_handler(b, &n.inner), 0);
    EXPECT_EQ(oxb_unregister_handler(b, &n), 0);
}

TEST_F(BusTest, LockKeepsOtherThreadsSendsOutUntilUnlock) {
    OXB_PORT *mine = open("sim:name=lock");
    OXB_PORT *theirs = open("sim:name=lock");
    OXB_BUS *b = bus_of(mine);
    ASSERT_EQ(oxb_lock(b, 100), 0);
    ASSERT_EQ(oxb_lock(b, 0), 0) << "recursive";
    ASSERT_EQ(oxb_send(mine, nullptr, axis(0), read(K, 1).bytes, 0), 0) << "the owner sends";

    std::atomic<bool> unlocked{false};
    std::atomic<bool> sent_after_unlock{false};
    auto other = std::async(std::launch::async, [&] {
        const Record r = read(K, 1);
        const int refused = oxb_send(theirs, nullptr, axis(0), r.bytes, 20);
        const int lock_refused = oxb_lock(b, 20);
        const int not_owner = oxb_unlock(b);
        const int waited = oxb_send(theirs, nullptr, axis(0), r.bytes, -1);
        sent_after_unlock = unlocked.load();
        return std::vector<int>{refused, lock_refused, not_owner, waited};
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_EQ(oxb_unlock(b), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    unlocked = true;
    ASSERT_EQ(oxb_unlock(b), 0);
    EXPECT_EQ(other.get(), (std::vector<int>{OXB_ELOCKED, OXB_ELOCKED, OXB_ENOTLOCKED, 0}));
    EXPECT_TRUE(sent_after_unlock) << "a send got through while the bus was locked";
    EXPECT_EQ(oxb_unlock(b), OXB_ENOTLOCKED);
    Record r;
    EXPECT_EQ(oxb_receive(theirs, nullptr, 0, r.bytes, 65, 0, 1000), 0);
    EXPECT_EQ(oxb_receive(theirs, nullptr, 0, r.bytes, 65, 0, 0), OXB_ENOTHING)
        << "the refused send left no answer";
}

} // namespace

namespace {

using namespace ryn::test;

// On the first drive that leaves: one exchange on the bus, then its last port closed.
struct Closer {
    OXB_PORT *port;
    std::promise<std::vector<int>> results;
    static int handler(OXB_BUS *, int, int event, void *context) {
        auto *c = static_cast<Closer *>(context);
        if (event != OXB_EVENT_DRIVE_GONE || c->port == nullptr) return 0;
        Record r;
        const int sent = oxb_send(c->port, nullptr, axis(1), read(K, 1).bytes, 0);
        const int received = oxb_receive(c->port, nullptr, 0, r.bytes, 65, 0, 1000);
        const int closed = oxb_close(&c->port);
        c->results.set_value({sent, received, closed});
        return 0;
    }
};

TEST(Handlers, MayUseTheBusAndCloseItsLastPort) {
    Closer c{nullptr, {}};
    ASSERT_EQ(oxb_open("sim:axes=0-1", &c.port), 0);
    OXB_BUS *b = nullptr;
    ASSERT_EQ(oxb_get_port_bus(c.port, &b), 0);
    ASSERT_EQ(oxb_register_handler(b, &c, ~0ull, 0, 0, 16, Closer::handler, &c), 0);
    auto done = c.results.get_future();
    ASSERT_EQ(oxbsim_detach(b, 0), 0);
    ASSERT_EQ(done.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_EQ(done.get(), (std::vector<int>{0, 0, 0}));
    uint64_t present = 0;
    EXPECT_EQ(oxb_get_present_axes(b, &present), OXB_EBADBUS) << "the bus ended with its last port";
}

} // namespace
