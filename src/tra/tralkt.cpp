// Dictionary sets of a translator and its lookup tables of register and command names.
#include "traopn.hpp"

namespace ryn::tra {

void _tra_free_tds(TRA *tra) {
    std::lock_guard lock(tra->td_lock);
    for (TRA_TD *td : tra->tds) {
        vok_close(&td->full);
        vok_close(&td->drive_only);
        delete td;
    }
    tra->tds.clear();
    for (auto &set : tra->axis_sets)
        set = nullptr;
}

int _tra_create_lkt(TRA *tra) {
    std::lock_guard lock(tra->lookup_lock);
    tra->stale = 0;
    return 0;
}

} // namespace ryn::tra
