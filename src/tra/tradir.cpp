// The direct translator: creation for named drive configurations and its validity tests.
#include "tracreate.hpp"
#include "tralkt.hpp"

namespace ryn::tra {

int create_offline(const Tracer &t, const CreateLines &lines, TRA **out, uint32_t kind,
                   uint32_t flags, const Configuration &first, const Configuration *axis63) {
    int rc = _tra_create_base(out, first.product, axis63 ? axis63->product : 0, flags, kind);
    if (rc != 0) return t.pass(lines.base, rc);
    TRA *tra = *out;
    auto fail = [&](int line, int code) {
        t.pass(line, code);
        suspended([&] { tra_destroy(out); });
        return code;
    };
    TRA_TD *td = nullptr;
    rc = _tra_get_td(tra, &td, first.product, first.version, first.ext_product, first.ext_version,
                     1);
    if (rc != 0) return fail(lines.first, rc);
    TRA_TD *td63 = td;
    if (axis63 != nullptr) {
        rc = _tra_get_td(tra, &td63, axis63->product, axis63->version, axis63->ext_product,
                         axis63->ext_version, 1);
        if (rc != 0) return fail(lines.second, rc);
    }
    for (int axis = 0; axis < AXES - 1; ++axis)
        tra->axis_sets[static_cast<std::size_t>(axis)] = td;
    tra->axis_sets[AXES - 1] = td63;
    return 0;
}

} // namespace ryn::tra

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

int tra_is_valid_direct_traductor(TRA *tra) {
    return accepts(tra, Accept::direct) ? 1 : 0;
}

int tra_is_valid_direct_traductor_e(TRA *tra) {
    return accepts(tra, Accept::direct_bus) ? 1 : 0;
}

} // extern "C"
