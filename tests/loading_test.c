/* How the library behaves as a guest: a program that is no host of matrices loads it, calls its kernels and unloads it,
 * again and again, beside other libraries that use the same names.
 *
 * loading_test LIBRARY DECOY-BLAS OTHER-BLAS
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "modla.h"

static int failures = 0;
#define CHECK(condition, ...)                       \
    do {                                            \
        if (!(condition)) {                         \
            printf("FAILED (line %d): ", __LINE__); \
            printf(__VA_ARGS__);                    \
            printf("\n");                           \
            failures++;                             \
        }                                           \
    } while (0)

/* ---- Names of the process that the library must use, or must not ------------------------------------------------ */

static int rand_calls = 0, srand_calls = 0;

int rand(void) {
    rand_calls++;
    return 1000 + rand_calls;
}
void srand(unsigned seed) {
    (void)seed;
    srand_calls++;
}

/* ---- What the process consists of -------------------------------------------------------------------------------- */

static int entries_of(const char *directory) {
    int count = 0;
    DIR *const opened = opendir(directory);
    for (const struct dirent *entry; opened && (entry = readdir(opened));) count += entry->d_name[0] != '.';
    if (opened) closedir(opened);
    return count;
}

/* Lines of the memory map with a text; all lines for "". */
static int mappings_with(const char *text) {
    char line[4096];
    int count = 0;
    FILE *const maps = fopen("/proc/self/maps", "r");
    while (maps && fgets(line, sizeof line, maps)) count += strstr(line, text) != NULL;
    if (maps) fclose(maps);
    return count;
}

static long pages(void) {
    long size = 0;
    FILE *const statm = fopen("/proc/self/statm", "r");
    if (statm) {
        if (fscanf(statm, "%ld", &size) != 1) size = 0;
        fclose(statm);
    }
    return size;
}

struct Process {
    int threads, files, mappings;
    long pages;
    size_t heap;
};

/* (That it takes no signals is seen in the names that it asks for.) */
static struct Process look(void) {
    struct Process now;
    now.threads = entries_of("/proc/self/task");
    now.files = entries_of("/proc/self/fd");
    now.mappings = mappings_with("");
    now.pages = pages();
    now.heap = mallinfo2().uordblks;
    return now;
}

/* ---- Using the library ------------------------------------------------------------------------------------------- */

enum { n = 70 };
static double a[n * n], b[n * n], c[n * n], expected[n * n];
static const double p = 1048573, pinv = (1 + 0x1p-52) / 1048573;

static void fill_matrices(void) {
    for (int i = 0; i < n * n; i++) {
        a[i] = (i * 7919 + 13) % 1048573;
        b[i] = (i * 104729 + 5) % 1048573;
    }
    for (int i = 0; i < n; i++) {
        for (int j = 0; j < n; j++) {
            uint64_t sum = 0;
            for (int k = 0; k < n; k++) sum += (uint64_t)a[i * n + k] * (uint64_t)b[k * n + j] % 1048573;
            expected[i * n + j] = (double)(sum % 1048573);
        }
    }
}

static void *load(const char *library) {
    void *const handle = dlopen(library, RTLD_LOCAL | RTLD_NOW);
    if (!handle) {
        printf("FAILED: %s\n", dlerror());
        exit(1);
    }
    return handle;
}

#define FIND(handle, name) const __typeof__(&name) call_##name = (__typeof__(&name))dlsym(handle, #name)

/* A product and a row reduction through CBLAS, and a function that calls others of the interface. */
static void use(void *handle, const char *where) {
    FIND(handle, modLA_MatMatBLAS);
    FIND(handle, modLA_reduce_C_f_nop);
    FIND(handle, modunknpow_iw);
    FIND(handle, modinverse_f);
    CHECK(call_modLA_MatMatBLAS && call_modLA_reduce_C_f_nop && call_modunknpow_iw, "%s: names are missing", where);
    memset(c, 0, sizeof c);
    call_modLA_MatMatBLAS(p, pinv, n, n, n, a, n, 1, b, n, 1, c, n, 1, 1 << 10, 1e15, 0);
    CHECK(memcmp(c, expected, sizeof c) == 0, "%s: a product is wrong", where);
    double rows[] = {1, 2, 3, 4, 5, 6}, determinant, product;
    int32_t rank, sign, extra = 0, pending[2] = {0, 0};
    const uint32_t status = call_modLA_reduce_C_f_nop(rows, 2, 3, 3, 3, p, pinv, &determinant, &product, &rank, &sign,
                                                      &extra, NULL, 1, 0, pending, 1 << 10);
    CHECK(status == 0 && rank == 2 && rows[0] == 1 && rows[1] == 0 && rows[2] == p - 1 && rows[5] == 2,
          "%s: a row reduction is wrong: %g %g %g / %g %g %g", where, rows[0], rows[1], rows[2], rows[3], rows[4],
          rows[5]);
    CHECK(call_modinverse_f(2, p, pinv) == (p + 1) / 2, "%s: an inverse is wrong", where);
}

static void compare(const struct Process *before, const struct Process *after, const char *when) {
    CHECK(before->threads == after->threads, "%s: %d threads, then %d", when, before->threads, after->threads);
    CHECK(before->files == after->files, "%s: %d open files, then %d", when, before->files, after->files);
}

static double processor_seconds(void) {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return (double)(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           (double)(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

/* Loading is cheap and changes nothing; unloading leaves nothing; again and again. */
static void test_loading(const char *library) {
    struct Process settled = look();
    double seconds = 0;
    for (int turn = 0; turn < 1000 && failures == 0; turn++) {
        const struct Process before = look();
        const double start = processor_seconds();
        void *const handle = load(library);
        seconds += processor_seconds() - start;
        const struct Process loaded = look();
        compare(&before, &loaded, "loading");
        CHECK(mappings_with("libmodla") > 0, "the library cannot be seen in the memory map");
        CHECK(rand_calls == 0 && srand_calls == 0, "loading called functions of the process");
        use(handle, "loaded again");
        const struct Process used = look();
        compare(&before, &used, "using");
        CHECK(dlclose(handle) == 0, "dlclose failed");
        const struct Process unloaded = look();
        compare(&before, &unloaded, "unloading");
        CHECK(mappings_with("libmodla") == 0, "the library stays mapped");
        if (turn == 20) settled = unloaded;
        if (turn > 20) {
            CHECK(unloaded.mappings == settled.mappings && unloaded.pages == settled.pages,
                  "%d mappings of %ld pages have become %d of %ld", settled.mappings, settled.pages, unloaded.mappings,
                  unloaded.pages);
            CHECK(unloaded.heap == settled.heap, "%zu bytes of the heap have become %zu", settled.heap, unloaded.heap);
        }
    }
    CHECK(seconds / 1000 < 0.005, "loading takes %g seconds", seconds / 1000);
    printf("loading takes %.2f ms\n", seconds);
}

/* Random entries come from the process's own rand(). */
static void test_rand(const char *library) {
    void *const handle = load(library);
    FIND(handle, rand_fill_iw);
    uint32_t words[4];
    rand_calls = 0;
    call_rand_fill_iw(NULL, 2, 2, words, 2, 1, 101);
    CHECK(rand_calls >= 4, "rand() of the process was called %d times for 4 entries", rand_calls);
    CHECK(srand_calls == 0, "srand() was called");
    dlclose(handle);
}

/* Neither BLAS takes the place of the other. */
static void test_other_blas(const char *library, const char *other) {
    void *const other_handle = dlopen(other, RTLD_NOW | RTLD_GLOBAL);
    CHECK(other_handle, "%s", dlerror());
    if (!other_handle) return;
    typedef double Dot(int, const double *, int, const double *, int);
    Dot *const dot = (Dot *)dlsym(other_handle, "cblas_ddot");
    void *const handle = load(library);
    for (int turn = 0; turn < 2; turn++) {
        use(handle, "beside another OpenBLAS");
        CHECK(dot && dot(2, (double[]){2, 3}, 1, (double[]){5, 7}, 1) == 31, "the other OpenBLAS is disturbed");
    }
    dlclose(handle);
    CHECK(dot && dot(2, (double[]){2, 3}, 1, (double[]){5, 7}, 1) == 31, "the other OpenBLAS is disturbed afterwards");
    dlclose(other_handle);
}

static void test_decoy_blas(const char *library, const char *decoy) {
    void *const decoy_handle = dlopen(decoy, RTLD_NOW | RTLD_GLOBAL);
    CHECK(decoy_handle, "%s", dlerror());
    if (!decoy_handle) return;
    const int *const calls = (const int *)dlsym(decoy_handle, "decoy_calls");
    void *const before = dlsym(RTLD_DEFAULT, "cblas_dgemm");
    CHECK(before != NULL, "the decoy is not in the global scope");
    void *handle = load(library);
    use(handle, "beside a decoy");
    CHECK(*calls == 0, "the library called another BLAS %d times", *calls);
    dlclose(handle);

    handle = dlopen(library, RTLD_NOW | RTLD_GLOBAL);
    CHECK(dlsym(RTLD_DEFAULT, "cblas_dgemm") == before, "the library took the place of another BLAS");
    CHECK(dlsym(handle, "cblas_dgemm") == NULL, "the library offers a BLAS");
    dlclose(handle);
    dlclose(decoy_handle);
}

/* Where no memory is left, kernels go on without any; or, after a product with a vector, with what that took for all. */
static void test_no_memory(const char *library, int vector_first) {
    void *const handle = load(library);
    FIND(handle, modLA_MatMatBLAS);
    if (vector_first) call_modLA_MatMatBLAS(p, pinv, n, n, 1, a, n, 1, b, 1, 1, c, 1, 1, 1 << 10, 1e15, 0);
    for (size_t bytes = (size_t)1 << 30; bytes >= 4096; bytes /= 2) {
        while (mmap(NULL, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0) != MAP_FAILED) continue;
    }
    alarm(60); /* OpenBLAS would ask for ever */
    use(handle, "without memory");
    alarm(0);
    CHECK(dlclose(handle) == 0, "dlclose failed without memory");
}

int main(int count, char **arguments) {
    if (count != 4) return 2;
    setvbuf(stdout, NULL, _IONBF, 0);
    fill_matrices();
    test_loading(arguments[1]);
    test_rand(arguments[1]);
    test_other_blas(arguments[1], arguments[3]);
    test_decoy_blas(arguments[1], arguments[2]);
    for (int vector_first = 0; vector_first < 2; vector_first++) {
        int status = 1;
        const pid_t child = fork();
        if (child == 0) {
            test_no_memory(arguments[1], vector_first);
            _exit(failures != 0);
        }
        CHECK(waitpid(child, &status, 0) == child && status == 0, "without memory: status %d", status);
    }
    printf(failures ? "%d checks failed\n" : "all checks passed\n", failures);
    return failures != 0;
}
