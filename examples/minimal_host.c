/* The smallest host: it keeps names and tables of its own, has the library create, multiply and row-reduce tables of
 * residues, and goes on after errors.  docs/embedding.md walks through it.  Usage: minimal_host [LIBRARY] */
#include <dlfcn.h>
#include <err.h>
#include <setjmp.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "modla.h"

/* ---- Memory: objects stay until the program ends, what was lent to the library until its call ends --------------- */

typedef struct Block {
    struct Block *next;
    uint32_t unused; /* aligns what follows to 8 */
} Block;
static Block *objects, *lent;
static void raise_error(const char *format, ...);

static void *allocate(Block **list, uint64_t bytes) {
    Block *const block = bytes < INT32_MAX ? calloc(1, sizeof(Block) + (size_t)bytes) : NULL;
    if (!block) raise_error("out of memory");
    block->next = *list;
    *list = block;
    return block + 1;
}
static void release(Block **list) {
    for (Block *block; (block = *list); free(block)) *list = block->next;
}

/* ---- Objects: a header word with type id and length in words, then what the type needs --------------------------- */

enum { NAME = 8, TABLE = 40 }; /* the host's own types: any ids that modla.h does not list */

typedef struct Name {
    uint32_t header;
    HostObject value;
    const char *text;
    struct Name *next;
} Name;
typedef struct Table {
    uint32_t header;
    RtableSettings settings;
    int32_t upper[2];
    void *data;
} Table;

static HostObject new_object(uint32_t length, uint32_t type) {
    uint32_t *const words = allocate(&objects, length * sizeof *words);
    words[0] = type << 26 | length;
    return (HostObject)(uintptr_t)words;
}

/* clang-format off */
static int has_type(HostObject x, uint32_t type) { return !modla_is_immediate(x) && modla_type(x) == type; }
static void *wrong(HostObject x) { raise_error("an object of another type is needed, not %1", x); return NULL; }
static void *of_type(HostObject x, uint32_t type) { return has_type(x, type) ? modla_words(x) : wrong(x); }
static Name *name_of(HostObject x) { return of_type(x, NAME); }
static Table *table_of(HostObject x) { return of_type(x, TABLE); }
/* clang-format on */

/* A global name is the same object whenever its text is the same: the library compares keywords by identity. */
static HostObject to_name(const char *text, uint32_t global) {
    static Name *names;
    Name *name = global ? names : NULL;
    while (name && strcmp(name->text, text) != 0) name = name->next;
    if (name) return (HostObject)(uintptr_t)name;
    name = name_of(new_object(sizeof *name / 4, NAME));
    name->text = strcpy(allocate(&objects, strlen(text) + 1), text);
    name->next = names;
    if (global) names = name;
    return (HostObject)(uintptr_t)name;
}
/* base[index], for the datatypes integer[4] and float[8] */
static HostObject indexed(const char *base, int32_t index) {
    const HostObject x = new_object(3, MODLA_TYPE_INDEXED_NAME), indices = new_object(2, MODLA_TYPE_SEQUENCE);
    modla_words(indices)[1] = modla_immediate_integer(index);
    modla_words(x)[1] = to_name(base, 1);
    modla_words(x)[2] = indices;
    return x;
}

/* ---- The operations that the library calls ----------------------------------------------------------------------- */

static jmp_buf *landing; /* in the call that runs */
static char message[256];
/* %1, %2 and so on stand for the objects that follow. */
static void raise_error(const char *format, ...) {
    HostObject values[10] = {0};
    va_list given;
    va_start(given, format);
    for (char mark[] = "%1"; strstr(format, mark); mark[1]++) values[mark[1] - '0'] = va_arg(given, HostObject);
    va_end(given);
    FILE *const text = fmemopen(message, sizeof message - 1, "w");
    for (; *format; format++) {
        const HostObject x = *format == '%' && format[1] > '0' && format[1] <= '9' ? values[*++format - '0'] : 0;
        if (x & 1) fprintf(text, "%d", (int)modla_integer_value(x));
        if (x == 0) fputc(*format, text);
        if (x && !(x & 1)) fputs(has_type(x, NAME) ? name_of(x)->text : "an object", text);
    }
    fclose(text);
    if (!landing) errx(1, "%s", message);
    longjmp(*landing, 1);
}

/* bounds: the lower and the upper one of each dimension. */
static HostObject create_table(RtableSettings *settings, void *data, int32_t *bounds) {
    Table *const table = table_of(new_object(sizeof *table / 4, TABLE));
    table->settings = *settings;
    table->upper[0] = bounds[1];
    table->upper[1] = settings->num_dimensions == 2 ? bounds[3] : 1;
    const uint64_t bytes =
        (uint64_t)table->upper[0] * (uint64_t)table->upper[1] * (settings->datatype == MODLA_FLOAT8 ? 8 : 4);
    table->data = data ? data : allocate(&objects, bytes);
    return (HostObject)(uintptr_t)table;
}

/* clang-format off */
static void *lend(uint32_t bytes) { return allocate(&lent, bytes); }
static void take_back(void *memory) { (void)memory; /* when the call ends */ }
static void assign(HostObject x, HostObject value) { name_of(x)->value = value; }
static uint32_t number_of(const HostObject *args) { return args[0]; }
static uint32_t has_target(HostObject x) { (void)x; return 0; /* a name stands for itself */ }
static uint32_t is_integer(HostObject x) { return (uint32_t)modla_is_immediate(x); /* small ones only */ }
static HostObject integer(int32_t v) { return modla_immediate_integer(v); }
static uint32_t is_name(HostObject x) { return (uint32_t)has_type(x, NAME); }
static uint32_t is_table(HostObject x) { return (uint32_t)has_type(x, TABLE); }
static int32_t to_int(HostObject x) { return is_integer(x) ? modla_integer_value(x) : x == to_name("true", 1); }
static double to_double(HostObject x) { return to_int(x); }
static HostObject to_float(double x) { raise_error("this host has no floats"); return (HostObject)x; }
static HostObject call_procedure(HostObject x, uint32_t n, ...) { raise_error("nothing was registered"); return x + n; }
static HostObject parse(const char *text) { return to_name(text, 1); /* it is only shown, in messages */ }
static HostObject null_value(void) { return to_name("NULL", 1); }
static void get_defaults(RtableSettings *s) { memset(s, 0, sizeof *s); }
static void get_settings(RtableSettings *s, HostObject x) { *s = table_of(x)->settings; }
static uint32_t dimensions(HostObject x) { return (uint32_t)table_of(x)->settings.num_dimensions; }
static int32_t upper_bound(HostObject x, uint32_t d) { return table_of(x)->upper[d - 1]; }
static void *data_of(HostObject x) { return table_of(x)->data; }

static const HostApi api = {
    .Alloc = lend, .Free = take_back, .RaiseError = raise_error, .AssignName = assign, .NumArgs = number_of,
    .CheckName = has_target, .IsInteger = is_integer, .IsNumeric = is_integer, .IsName = is_name, .IsRtable = is_table,
    .ToInt = to_int, .ToDouble = to_double, .ToInteger = integer, .ToFloat = to_float,
    .ToName = to_name, .ParseString = parse, .NullValue = null_value, .CallProcedure = call_procedure,
    .RtableCreate = create_table, .RtableData = data_of, .RtableGetDefaults = get_defaults,
    .RtableGetSettings = get_settings, .RtableNumDims = dimensions, .RtableUpperBound = upper_bound};
/* clang-format on */

/* ---- Using the library ------------------------------------------------------------------------------------------- */

static void *library;
/* The result of an entry point, or 0 after an error, which is shown.  args[0] is the number of arguments here. */
static HostObject call(const char *entry_point, const HostObject *args) {
    HostObject (*function)(const HostApi *, const HostObject *), result = 0;
    *(void **)&function = dlsym(library, entry_point);
    jmp_buf here;
    landing = &here;
    if (setjmp(here) == 0) {
        result = function(&api, args);
    } else {
        printf("%s: %s\n", entry_point, message);
    }
    landing = NULL;
    release(&lent);
    return result;
}
#define CALL(entry_point, ...) \
    call(entry_point, (HostObject[]){sizeof((HostObject[]){__VA_ARGS__}) / sizeof(HostObject), __VA_ARGS__})

static void show(const char *title, HostObject x) {
    const uint32_t *const entries = data_of(x);
    const int32_t n = upper_bound(x, 2);
    printf("%s\n", title);
    for (int32_t i = 0; i < upper_bound(x, 1) * n; i++) printf("%4u%s", entries[i], (i + 1) % n ? "" : "\n");
}

int main(int count, char **arguments) {
    library = dlopen(count > 1 ? arguments[1] : "libmodla.so.1", RTLD_NOW | RTLD_LOCAL);
    if (!library) errx(1, "%s", dlerror());
    const HostObject p = integer(101), four = integer(4), all = integer(-1), none = integer(0);
    const HostObject words = indexed("integer", 4), det = to_name("det", 1), rank = to_name("rank", 1);
    const HostObject A = CALL("modLA_Create", p, four, four, words, to_name("C_order", 1));
    const uint32_t square[] = {16, 2, 3, 13, 5, 11, 10, 8, 9, 7, 6, 12, 4, 14, 15, 1};
    memcpy(data_of(A), square, sizeof square);
    show("The square of a magic square modulo 101:", CALL("modLA_Multiply", p, A, A));
    CALL("modLA_RowReduce", p, A, all, all, none, det, none, rank, none, none, to_name("true", 1));
    show("Its reduced row echelon form:", A);
    printf("Determinant %d, rank %d\n", to_int(name_of(det)->value), to_int(name_of(rank)->value));
    CALL("modLA_RowReduce", p, none, all, all, none, det, none, rank, none, none, to_name("true", 1));
    CALL("modLA_Create", integer(1 << 20), four, four, words);
    CALL("modLA_Create", p, four, four, words, det);
    const HostObject B = CALL("modLA_Create", four, four, four, integer(2), words);
    CALL("modLA_RowReduce", four, B, all, all, none, det, none, rank, none, none, to_name("true", 1));
    show("After these errors:", CALL("modLA_Create", p, integer(2), integer(2), to_name("identity", 1), words));
    release(&objects);
    return dlclose(library);
}
