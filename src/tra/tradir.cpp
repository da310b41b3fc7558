// The direct translator: creation offline or on a bus, validity tests, sending commands and
// receiving answers as text, command streams and the axis mask kept for the application.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "tracreate.hpp"

using namespace ryn::tra;

extern "C" {

int tra_create_direct_traductor_o(TRA **out, uint32_t product, uint32_t version,
                                  uint32_t ext_product, uint32_t ext_version, uint32_t flags) {
    static constexpr Tracer t{"tradir", "tra_create_direct_traductor_o"};
    return create_offline(t, {98, 104, 104}, out, KIND_DIRECT_OFFLINE, flags,
                          {product, version, ext_product, ext_version}, nullptr);
}

int tra_create_direct_traductor_o2(TRA **out, uint32_t product, uint32_t version,
                                   uint32_t ext_product, uint32_t ext_version, uint32_t product_63,
                                   uint32_t version_63, uint32_t ext_product_63,
                                   uint32_t ext_version_63, uint32_t flags) {
    static constexpr Tracer t{"tradir", "tra_create_direct_traductor_o2"};
    const Configuration axis63{product_63, version_63, ext_product_63, ext_version_63};
    return create_offline(t, {149, 155, 164}, out, KIND_DIRECT_OFFLINE, flags,
                          {product, version, ext_product, ext_version}, &axis63);
}

int tra_create_direct_traductor_e(TRA **out, OXB_PORT *port, uint32_t flags) {
    static constexpr Tracer t{"tradir", "tra_create_direct_traductor_e"};
    return guarded(t, __LINE__, [&] {
        return create_on_bus(t, {204, 211, 216, 223, 232, 242}, out, KIND_DIRECT_BUS, port, flags);
    });
}

int tra_is_valid_direct_traductor(TRA *tra) {
    return exported_value(tra, Accept::direct, 0, [](TRA &) { return 1; });
}

int tra_is_valid_direct_traductor_e(TRA *tra) {
    return exported_value(tra, Accept::direct_bus, 0, [](TRA &) { return 1; });
}

int tra_send_direct_cmd_e(TRA *tra, const char *text, uint64_t user, uint8_t *sent) {
    static constexpr Tracer t{"tradir", "tra_send_direct_cmd_e"};
    if (sent != nullptr) *sent = 0;
    return exported(t, 272, tra, Accept::direct, [&](TRA &x) {
        if (text == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "null command text");
        Envelope *e = nullptr;
        int rc = _tra_create_cmd(&x, &e, text, 0, nullptr, user);
        if (rc != 0) return t.pass(282, rc);
        if (e == nullptr) return 0; // nothing to send
        uint8_t went = 0;
        rc = _tra_send_cmd(&x, e, ~uint64_t(0), 0, 1, &went);
        // An envelope that never went out is still ours, whatever the status.
        if (went == 0) _tra_free_cmd(e);
        if (sent != nullptr) *sent = went;
        return rc == 0 ? 0 : t.pass(297, rc);
    });
}

int tra_receive_direct_cmd_e_ex(TRA *tra, char *text, uint32_t size, uint8_t *acknowledged,
                                uint8_t *flag, uint8_t *request, uint64_t *user, uint32_t timeout) {
    static constexpr Tracer t{"tradir", "tra_receive_direct_cmd_e_ex"};
    return exported(t, 328, tra, Accept::direct, [&](TRA &x) {
        // Checked before an answer is taken, so that a bad destination loses none.
        if (text == nullptr || size == 0)
            return t.fail(__LINE__, TRA_EBADPARAM, "null or empty destination text");
        const int wait =
            timeout == 0xFFFFFFFFu ? -1 : static_cast<int>(std::min<uint32_t>(timeout, INT_MAX));
        Envelope *e = nullptr;
        int rc = _tra_receive_cmd(&x, &e, wait);
        if (rc != 0) return t.pass(334, rc);
        rc = _tra_extract_cmd(&x, e, text, static_cast<int>(std::min<uint32_t>(size, INT_MAX)),
                              acknowledged, flag, request, user);
        _tra_free_cmd(e);
        return rc == 0 ? 0 : t.pass(340, rc);
    });
}

int tra_receive_direct_cmd_e(TRA *tra, char *text, uint32_t size, uint8_t *acknowledged,
                             uint8_t *flag, uint8_t *request, uint64_t *user, uint8_t wait) {
    static constexpr Tracer t{"tradir", "tra_receive_direct_cmd_e"};
    const int rc = tra_receive_direct_cmd_e_ex(tra, text, size, acknowledged, flag, request, user,
                                               wait != 0 ? 0xFFFFFFFFu : 0u);
    return rc == 0 ? 0 : t.pass(369, rc);
}

int tra_oxcom_send_direct_stream_e(TRA *tra, uint64_t axis_mask, TRA_READ_LINE read_line,
                                   void *user) {
    static constexpr Tracer t{"tradir", "tra_oxcom_send_direct_stream_e"};
    return exported(t, 393, tra, Accept::direct, [&](TRA &x) {
        // Every type, without a type check, version resets or a type filter.
        const int rc = _tra_send_direct_stream(&x, axis_mask, -1, nullptr, 0, read_line, user);
        return rc == 0 ? 0 : t.pass(398, rc);
    });
}

int tra_oxcom_get_axis_mask_e(TRA *tra, uint64_t *mask) {
    static constexpr Tracer t{"tradir", "tra_oxcom_get_axis_mask_e"};
    return exported(t, 440, tra, Accept::direct_bus, [&](TRA &x) {
        if (mask != nullptr) *mask = x.axis_mask.load();
        return 0;
    });
}

int tra_oxcom_set_axis_mask_e(TRA *tra, uint64_t mask) {
    static constexpr Tracer t{"tradir", "tra_oxcom_set_axis_mask_e"};
    return exported(t, 416, tra, Accept::direct_bus, [&](TRA &x) {
        x.axis_mask = mask;
        return 0;
    });
}

int tra_get_stream_report(TRA *tra, TRA_STREAM_REPORT *report) {
    static constexpr Tracer t{"tradir", "tra_get_stream_report"};
    return exported(t, __LINE__, tra, Accept::any, [&](TRA &x) {
        // A caller built with an older, shorter report gets the fields it knows.
        if (report == nullptr || report->size < offsetof(TRA_STREAM_REPORT, lines))
            return t.fail(__LINE__, TRA_EBADPARAM, "null report or size not set");
        const uint32_t size = std::min<uint32_t>(report->size, sizeof(TRA_STREAM_REPORT));
        std::lock_guard lock(x.stream.report_lock);
        std::memcpy(report, &x.stream.report, size);
        report->size = size;
        return 0;
    });
}

} // extern "C"
