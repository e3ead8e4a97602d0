/* The public header, read by a C compiler: names every function that is exported.  The C++ twin includes this file. */
#include "modla.h"

#define ADDRESS(function) (void (*)(void)) function

typedef void (*AnyFunction)(void);

static const AnyFunction functions[] = {
#include "exported.inc"
};

/* Sizes and slots that both sides count on. */
typedef char settings_are_64_bytes[sizeof(RtableSettings) == 64 ? 1 : -1];
typedef char api_has_101_slots[sizeof(HostApi) == 101 * 4 ? 1 : -1];

/* How many functions there are, or 0 when one of them is missing. */
int main(void) {
    unsigned long i;
    const unsigned long count = sizeof functions / sizeof functions[0];
    const settings_are_64_bytes *settings = 0;
    const api_has_101_slots *api = 0;
    if (settings || api) return 1;
    for (i = 0; i < count; i++) {
        if (!functions[i]) return 1;
    }
    return 0;
}
