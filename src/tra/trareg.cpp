// The register translator: creation offline or on a bus, validity tests, parameter download
// through the stream loop and the upload loop over the axes.
#include <bit>
#include <mutex>

#include "tracreate.hpp"
#include "traupl.hpp"

using namespace ryn::tra;

namespace {

// Whether a type list given to a stream or an upload can be read: a positive count needs a list.
bool bad_type_list(int32_t type_count, const uint8_t *types) {
    return type_count < -1 || (type_count > 0 && types == nullptr);
}

int download(const Tracer &t, TRA &x, uint64_t axis_mask, int32_t type_count, const uint8_t *types,
             uint32_t filter_mode, TRA_READ_LINE read_line, void *user) {
    if (bad_type_list(type_count, types))
        return t.fail(__LINE__, TRA_EBADPARAM, "type list missing or count below -1");
    const int rc =
        _tra_send_direct_stream(&x, axis_mask, type_count, types, filter_mode, read_line, user);
    return rc == 0 ? 0 : t.pass(__LINE__, rc);
}

} // namespace

extern "C" {

int tra_create_register_traductor_e(TRA **out, OXB_PORT *port, uint32_t flags) {
    static constexpr Tracer t{"trareg", "tra_create_register_traductor_e"};
    return guarded(t, __LINE__, [&] {
        return create_on_bus(t, {__LINE__, __LINE__, __LINE__, __LINE__, __LINE__, __LINE__}, out,
                             KIND_REGISTER_BUS, port, flags);
    });
}

int tra_create_register_traductor_o(TRA **out, uint32_t product, uint32_t version,
                                    uint32_t ext_product, uint32_t ext_version, uint32_t flags) {
    static constexpr Tracer t{"trareg", "tra_create_register_traductor_o"};
    // One trace line for the base creation, one for the configuration (and one for axis 63).
    return create_offline(t, {__LINE__, __LINE__ + 1, __LINE__ + 1}, out, KIND_REGISTER_OFFLINE,
                          flags, {product, version, ext_product, ext_version}, nullptr);
}

int tra_create_register_traductor_o2(TRA **out, uint32_t product, uint32_t version,
                                     uint32_t ext_product, uint32_t ext_version,
                                     uint32_t product_63, uint32_t version_63,
                                     uint32_t ext_product_63, uint32_t ext_version_63,
                                     uint32_t flags) {
    static constexpr Tracer t{"trareg", "tra_create_register_traductor_o2"};
    const Configuration axis63{product_63, version_63, ext_product_63, ext_version_63};
    return create_offline(t, {__LINE__, __LINE__ + 1, __LINE__ + 2}, out, KIND_REGISTER_OFFLINE,
                          flags, {product, version, ext_product, ext_version}, &axis63);
}

int tra_is_valid_register_traductor(TRA *tra) {
    return exported_value(tra, Accept::register_any, 0, [](TRA &) { return 1; });
}

int tra_is_valid_register_traductor_e(TRA *tra) {
    return exported_value(tra, Accept::register_bus, 0, [](TRA &) { return 1; });
}

int tra_oxcom_download_register_stream_e(TRA *tra, uint64_t axis_mask, int32_t type_count,
                                         const uint8_t *types, TRA_READ_LINE read_line,
                                         void *user) {
    static constexpr Tracer t{"trareg", "tra_oxcom_download_register_stream_e"};
    return exported(t, __LINE__, tra, Accept::register_bus, [&](TRA &x) {
        return download(t, x, axis_mask, type_count, types, 0, read_line, user);
    });
}

int tra_oxcom_download_register_stream_e2(TRA *tra, uint64_t axis_mask, int32_t type_count,
                                          const uint8_t *types, uint32_t filter_mode,
                                          TRA_READ_LINE read_line, void *user) {
    static constexpr Tracer t{"trareg", "tra_oxcom_download_register_stream_e2"};
    return exported(t, __LINE__, tra, Accept::register_bus, [&](TRA &x) {
        return download(t, x, axis_mask, type_count, types, filter_mode, read_line, user);
    });
}

int tra_register_downloaded(TRA *tra, uint8_t *downloaded) {
    static constexpr Tracer t{"trareg", "tra_register_downloaded"};
    return exported(t, __LINE__, tra, Accept::register_bus, [&](TRA &x) {
        if (downloaded == nullptr)
            return t.fail(__LINE__, TRA_EBADPARAM, "downloaded parameter is NULL");
        *downloaded = x.downloaded.load();
        return 0;
    });
}

int tra_oxcom_upload_register_stream_e(TRA *tra, uint64_t axis_mask, int32_t type_count,
                                       const uint8_t *types, int32_t first_index, int32_t max_index,
                                       int32_t max_subindex, TRA_WRITE_LINE write_line,
                                       void *user) {
    static constexpr Tracer t{"trareg", "tra_oxcom_upload_register_stream_e"};
    return exported(t, __LINE__, tra, Accept::register_bus, [&](TRA &x) {
        if (write_line == nullptr) return t.fail(__LINE__, TRA_EBADPARAM, "null write_line");
        if (bad_type_list(type_count, types))
            return t.fail(__LINE__, TRA_EBADPARAM, "type list missing or count below -1");
        // Uploads and streams share the line buffer: one at a time.
        std::unique_lock running(x.stream.running, std::try_to_lock);
        if (!running.owns_lock())
            return t.fail(__LINE__, TRA_ENOTALLOWED, "a stream is already running");
        x.progress = 0.0;
        if (axis_mask == 0 || type_count == 0) {
            x.progress = 1.0;
            return 0;
        }
        Upload u{};
        u.tra = &x;
        u.write_line = write_line;
        u.user = user;
        u.first_index = first_index < 0 ? 0 : first_index;
        u.max_index = max_index;
        u.max_subindex = max_subindex;
        u.versions = type_count > 0;
        if (type_count > 0) {
            u.types.assign(types, types + type_count);
            // Every type of the list must be one that the bus lets streams carry.
            uint8_t allowed = 0;
            if (oxb_check_types(x.bus, &allowed, type_count, types) < 0)
                return t.fail(__LINE__, TRA_EINTERNAL);
            if (allowed == 0) return t.fail(__LINE__, TRA_ENOTALLOWED);
        } else {
            // Every type code, as a command stream takes them: without the bus's type check.
            for (int type = 0; type < VOK_TYPE_COUNT; ++type)
                u.types.push_back(static_cast<uint8_t>(type));
        }
        uint64_t present = 0;
        if (oxb_get_present_axes(x.bus, &present) != 0) return t.convert(__LINE__, TRA_EINTERNAL);
        if (present == 0) return t.fail(__LINE__, TRA_ENOTALLOWED, "no drive on the bus");
        const uint64_t axes = axis_mask & present;
        u.axes = std::popcount(axes);

        return in_session(x, t, __LINE__, [&] {
            u.flags = x.call.flags;
            int rc = 0;
            if ((u.flags & TRA_FNO_COMMENTS) == 0) rc = _tra_upload_entete_comment(u);
            if (rc == 0) rc = _tra_upload_register_version(u, axis_mask);
            if (rc == 0 && (u.flags & TRA_FVERBOSE) != 0) {
                char line[64];
                std::snprintf(line, sizeof line, "#  - axis.mask=0x%llX",
                              static_cast<unsigned long long>(axis_mask));
                rc = u.emit(line);
            }
            for (int axis = 0; rc == 0 && axis < AXES; ++axis) {
                if ((axes >> axis & 1) == 0) continue;
                ++u.position;
                if (x.axis_dicts[static_cast<std::size_t>(axis)] == nullptr) continue;
                if ((u.flags & TRA_FNO_COMMENTS) == 0) rc = _tra_upload_axis_comment(u, axis);
                if (rc == 0) rc = _tra_upload_axis_registers(u, axis);
            }
            // The caller's refusal of a line is not an error: the upload ends with 0.
            if (rc == UPLOAD_STOPPED) return 0;
            if (rc == 0) x.progress = 1.0;
            return rc;
        });
    });
}

} // extern "C"
