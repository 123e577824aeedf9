/* A host in C: every operation once, and its lines on standard error. With Kivo installed:
   cc host.c -o host $(pkg-config --cflags --libs kivo) */

#include <stdio.h>

#include "kivo/kivo.h"

static const int oneMinute = 60 * 1000;

static void printLine(const char* line, size_t length, void* stream) {
    fprintf((FILE*)stream, "kivo: %.*s\n", (int)length, line);
}

/* Operations have no order among themselves: those after setting the user wait for its outcome. */
static void callEachOperation(void) {
    const kivo_payload_entry payload[] = {{"notification", "title", "Hello"}};
    kivo_set_user("40", NULL, "ana@example.com", "Ana");
    kivo_wait_until_idle(oneMinute);
    kivo_update_device_token("push-token");
    kivo_set_notification_permission(true);
    kivo_on_message_received(payload, sizeof payload / sizeof *payload);
    kivo_wait_until_idle(oneMinute);
    kivo_unset_user();
}

int main(void) {
    printf("Kivo %s\n", kivo_version());
    kivo_set_bundle_identifier("com.example.c");
    kivo_set_output_callback(printLine, stderr);
    if (!kivo_initialise("my-api-key", false)) return 1;
    callEachOperation();
    return kivo_wait_until_idle(oneMinute) ? 0 : 1; /* Unfinished work is lost at exit. */
}
