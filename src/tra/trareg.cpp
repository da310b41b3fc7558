// The register translator: creation for named drive configurations and its validity tests.
#include "tracreate.hpp"

using namespace ryn::tra;

extern "C" {

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

} // extern "C"
