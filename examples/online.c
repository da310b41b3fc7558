/* Talks to the simulated demo bus through a direct translator: single commands and a stream. */
#include <stdio.h>
#include <string.h>

#include <ryn/oxb.h>
#include <ryn/tra.h>

/* Hands the stream its lines one by one; -1 ends it. */
static int next_line(TRA *tra, char *buffer, int32_t size, void *user) {
    const char ***lines = user;
    (void)tra;
    if (**lines == NULL) return -1;
    snprintf(buffer, (size_t)size, "%s", **lines);
    ++*lines;
    return 0;
}

int main(void) {
    OXB_PORT *port = NULL;
    if (oxb_open("sim:", &port) != 0) return 1; /* the demo bus: five simulated drives */
    TRA *tra = NULL;
    if (tra_create_direct_traductor_e(&tra, port, 0) != 0) return 1;

    const char *lines[] = {"K1.0=1234", "K1.0", "K1.0=2000000", "X1.0/=0", NULL};
    for (int i = 0; lines[i] != NULL; ++i) {
        uint8_t sent = 0, ack = 0, status = 0, request = 0;
        uint64_t user = 0;
        char answer[1024];
        int rc = tra_send_direct_cmd_e(tra, lines[i], (uint64_t)i, &sent);
        if (rc == 0 && sent)
            rc = tra_receive_direct_cmd_e_ex(tra, answer, sizeof answer, &ack, &status, &request,
                                             &user, 1000);
        if (rc != 0)
            printf("%-14s error %d %s\n", lines[i], rc, tra_translate_error(rc));
        else
            printf("%-14s %s%s -> %s\n", lines[i], ack ? "acknowledged" : "refused",
                   status ? " (error status)" : "", answer);
    }

    const char *stream[] = {"# a parameter block", "K2.0=10", "X1.0/=0", "K12.0=1", NULL};
    const char **cursor = stream;
    int rc = tra_oxcom_send_direct_stream_e(tra, 0x1, next_line, &cursor);
    TRA_STREAM_REPORT report;
    memset(&report, 0, sizeof report);
    report.size = sizeof report;
    tra_get_stream_report(tra, &report);
    printf("stream %d: %u lines, %u sent, %u acknowledged, %u refused (first: line %d, %s)\n", rc,
           report.lines, report.sent, report.acknowledged, report.refused,
           report.first_refused_line, report.first_refused_text);

    tra_destroy(&tra);
    oxb_close(&port);
    return 0;
}
