// The command number of a record for applications that read records through ryn/record.h; the
// page arithmetic of the record kinds stays in the wire module.
#include "ryn/record.h"
#include "wire/wire.hpp"

extern "C" int32_t tra_record_command(const void *record) {
    if (record == nullptr) return -1;
    const ryn::wire::ConstRecordView view{static_cast<const uint8_t *>(record)};
    const ryn::wire::KindCommand c = ryn::wire::command_of(view.kind(), view.command_byte());
    return c.carries ? c.code : -1;
}
