/* A program written from docs/api.md and the installed headers alone: translates a line, reads
 * the record through ryn/record.h, and prints the trace of a failure. */
#include <stdio.h>

#include <ryn/record.h>
#include <ryn/sup.h>
#include <ryn/tra.h>
#include <ryn/version.h>

int main(void) {
    TRA *tra = NULL;
    unsigned char buffer[TRA_RECORD_SIZE(TRA_RECORD_MAX_SLOTS)]; /* no alignment needed */
    TRA_RECORD *record = (TRA_RECORD *)buffer;
    uint32_t count = 0, i;
    uint64_t axes = 0;
    char trace[2048];
    int rc;

    if (tra_create_direct_traductor_o(&tra, 32, 0x03128100, 0, 0, 0) != 0) return 1;
    rc = tra_oxcom_translate_cmd_from_ascii_ex(tra, record, TRA_RECORD_MAX_SLOTS,
                                               &count, &axes, "MVE.1=1000L,50.0F,200.0D");
    if (rc != 0) return 2;
    printf("version %s command %d kind %u slots %u axes 0x%llx\n", RYN_VERSION_TEXT,
           (int)tra_record_command(record), tra_record_kind(record), tra_record_count(record),
           (unsigned long long)axes);
    for (i = 0; i < count; ++i)
        printf("slot %u tag 0x%x int64 %lld float %g double %g\n", i,
               tra_record_slot_tag(record, i), (long long)tra_record_slot_int64(record, i),
               tra_record_slot_float(record, i), tra_record_slot_double(record, i));

    rc = tra_oxcom_translate_cmd_from_ascii_ex(tra, record, TRA_RECORD_MAX_SLOTS,
                                               &count, &axes, "K1.0=2000000");
    if (rc == 0) return 3;
    if (sup_trace_format(trace, (int)sizeof trace) >= (int)sizeof trace) return 4;
    printf("failure %d %s\n%s", rc, tra_translate_error(rc), trace);
    if (tra_destroy(&tra) != 0 || tra != NULL) return 5;
    return 0;
}
