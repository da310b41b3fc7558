// Creation of offline translators for named drive configurations, shared by both translator roles.
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
    rc = guarded(t, lines.first, [&] {
        TRA_TD *td = nullptr;
        int status = _tra_get_td(tra, &td, first.product, first.version, first.ext_product,
                                 first.ext_version, 1);
        if (status != 0) return fail(lines.first, status);
        TRA_TD *td63 = td;
        if (axis63 != nullptr) {
            status = _tra_get_td(tra, &td63, axis63->product, axis63->version, axis63->ext_product,
                                 axis63->ext_version, 1);
            if (status != 0) return fail(lines.second, status);
        }
        for (int axis = 0; axis < AXES - 1; ++axis)
            tra->axis_sets[static_cast<std::size_t>(axis)] = td;
        tra->axis_sets[AXES - 1] = td63;
        return 0;
    });
    // A failure thrown half-way leaves no half-built translator behind either.
    if (rc != 0 && *out != nullptr) suspended([&] { tra_destroy(out); });
    return rc;
}

} // namespace ryn::tra
