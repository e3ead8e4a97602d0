/* For old_processor_test.sh: executes an SSE3 instruction, or loads a library. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

int main(int count, char **arguments) {
    if (count != 2) return 2;
    if (strcmp(arguments[1], "sse3") == 0) {
        __asm__ volatile("haddpd %xmm0, %xmm0");
    } else if (!dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL)) {
        puts(dlerror());
        return 1;
    }
    return 0;
}
