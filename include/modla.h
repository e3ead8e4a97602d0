/* modLA: exact linear algebra modulo p on a host's own matrices.
 *
 * This header is the whole binary interface of libmodla.so (i386 ELF, cdecl): the types shared with the host, the
 * entry points that a host calls with its argument arrays, and the helpers and kernels that a program may call on
 * raw storage.  It is plain C and can be read by a C++ compiler.
 *
 * A modp object is a rectangular host table (a Matrix, a column Vector or a row Vector) whose entries are residues
 * 0..p-1 in one of three datatypes:
 *
 *   code  keyword        entries                        modulus
 *   0     "integer"      host integers of any size      p >= 2
 *   4     "integer[4]"   32-bit words                   2 <= p <= 65535
 *   6     "float[8]"     doubles holding integers       2 <= p <= 33554431
 *
 * Entry (i, j) of an m x n object, counted from 0, lies at i*n + j in C_order (row-major) and at j*m + i in
 * Fortran_order (column-major).
 *
 * What every function bears: a stack and data aligned to 4 bytes only; any x87 control word and any MXCSR, which are
 * unchanged whenever the host is called and on return; a host whose operations leave by longjmp or by a C++ exception.
 * Nothing here is thread-safe; everything is re-entrant.
 */
#ifndef MODLA_H
#define MODLA_H

#include <stddef.h>
#include <stdint.h>

#define MODLA_VERSION_MAJOR 1 /* as in the library's SONAME */
#define MODLA_VERSION_MINOR 0
#define MODLA_VERSION_PATCH 0

#if UINTPTR_MAX != 0xffffffff
#error "modLA is a 32-bit library: compile for i386 (-m32)"
#endif

#if defined(__GNUC__)
#define MODLA_API __attribute__((visibility("default")))
#else
#define MODLA_API
#endif

#ifdef __cplusplus
#define MODLA_STATIC_ASSERT(condition, text) static_assert(condition, text)
#define MODLA_CAST(type, value) static_cast<type>(value)
#define MODLA_ADDRESS(type, value) reinterpret_cast<type>(value)
extern "C" {
#else
#if defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define MODLA_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#else
#define MODLA_STATIC_ASSERT(condition, text) struct modla_layout_is_not_checked
#endif
#define MODLA_CAST(type, value) ((type)(value))
#define MODLA_ADDRESS(type, value) ((type)(value))
#endif

/* ---- Host values ------------------------------------------------------------------------------------------- */

/* A host value.  Low bit 1: the immediate integer v, stored as 2v+1 (|v| < 2^30 is always immediate).  Otherwise a
 * pointer to a header word: type id in the top 6 bits, length in words (header included) in the low 26. */
typedef uint32_t HostObject;

static inline int modla_is_immediate(HostObject object) {
    return object & 1;
}
/* The value of an immediate integer, and |v| < 2^30 as one. */
static inline int32_t modla_integer_value(HostObject object) {
    return MODLA_CAST(int32_t, object) >> 1;
}
static inline HostObject modla_immediate_integer(int32_t v) {
    return (MODLA_CAST(uint32_t, v) << 1) | 1;
}
/* The words of an object that is not immediate, its header first; its type id; its length in words. */
static inline HostObject *modla_words(HostObject object) {
    return MODLA_ADDRESS(HostObject *, object);
}
static inline uint32_t modla_type(HostObject object) {
    return modla_words(object)[0] >> 26;
}
static inline uint32_t modla_length(HostObject object) {
    return modla_words(object)[0] & 0x3ffffff;
}

/* Type ids that the library reads. */
enum {
    MODLA_TYPE_NEGATIVE_INTEGER = 1, /* words 1..: base-10000 digits of the magnitude, least significant first */
    MODLA_TYPE_POSITIVE_INTEGER = 2, /* the same */
    MODLA_TYPE_RATIONAL = 3,         /* words 1 and 2: numerator, denominator */
    MODLA_TYPE_COMPLEX = 6,          /* length 2: imaginary part; length 3: real part, imaginary part */
    MODLA_TYPE_INDEXED_NAME = 10,    /* word 1: base name; word 2: expression sequence of the indices */
    MODLA_TYPE_SYMBOLIC_POWER = 13,  /* a power whose exponent is no number */
    MODLA_TYPE_POWER = 14,           /* length 3: base, exponent; longer: a product of base, exponent pairs */
    MODLA_TYPE_SUM = 16,             /* pairs of term and coefficient */
    MODLA_TYPE_POLYNOMIAL = 17,      /* modp1: variable, modulus, coefficients from that of degree 0 */
    MODLA_TYPE_EQUATION = 20,        /* words 1 and 2: the two sides */
    MODLA_TYPE_SEQUENCE = 29,        /* words 1..length-1: the elements */
    MODLA_TYPE_LIST = 30,            /* word 1: a sequence; or words 1..length-1: the elements */
    MODLA_TYPE_RANGE = 35,           /* words 1 and 2: the two ends */
    MODLA_TYPE_SET = 36              /* as a list */
};

/* Datatype codes, as in RtableSettings.datatype. */
enum { MODLA_INTEGER = 0, MODLA_INTEGER4 = 4, MODLA_FLOAT8 = 6 };

/* Storage orders, as in RtableSettings.order. */
enum { MODLA_FORTRAN_ORDER = 0, MODLA_C_ORDER = 1 };

/* Subtypes, as in RtableSettings.subtype. */
enum { MODLA_ARRAY = 0, MODLA_MATRIX = 1, MODLA_COLUMN_VECTOR = 2, MODLA_ROW_VECTOR = 3 };

/* The only storage that is accepted and created. */
enum { MODLA_RECTANGULAR = 4 };

/* A host table's settings (64 bytes). */
typedef struct RtableSettings {
    int32_t datatype;         /* 0 integer, 4 integer[4], 6 float[8] */
    int32_t subtype;          /* 0 Array, 1 Matrix, 2 column Vector, 3 row Vector */
    int32_t storage;          /* 4 rectangular */
    int32_t order;            /* 1 C_order, 0 Fortran_order */
    int32_t view;             /* 1: the data belongs to another table */
    int32_t num_dimensions;   /* 1 Vector, 2 Matrix */
    uint32_t host_fields[10]; /* the host's own; defaults from RtableGetDefaults, never changed here */
} RtableSettings;

MODLA_STATIC_ASSERT(sizeof(RtableSettings) == 64 && offsetof(RtableSettings, datatype) == 0 &&
                        offsetof(RtableSettings, subtype) == 4 && offsetof(RtableSettings, storage) == 8 &&
                        offsetof(RtableSettings, order) == 12 && offsetof(RtableSettings, view) == 16 &&
                        offsetof(RtableSettings, num_dimensions) == 20 && offsetof(RtableSettings, host_fields) == 24,
                    "the layout of RtableSettings");

/* The host's operations: 101 slots, numbered from 0.  The library calls the named ones only. */
typedef struct HostApi {
    void *(*Alloc)(uint32_t bytes);                                             /*  0: never null: the host raises */
    HostObject (*NewObject)(uint32_t length, uint32_t type_id);                 /*  1: raw object of length words */
    void (*AssignName)(HostObject name, HostObject value);                      /*  2: assign an output */
    void *reserved_3;                                                           /*  3 */
    void (*Free)(void *memory);                                                 /*  4: return Alloc memory */
    void (*RaiseError)(const char *format, ...);                                /*  5: raise; %1.. are HostObjects */
    HostObject (*Evaluate)(HostObject object);                                  /*  6: full evaluation */
    void *reserved_7[2];                                                        /*  7..8 */
    HostObject (*CallProcedure)(HostObject procedure, uint32_t n, ...);         /*  9: call with n arguments */
    void *reserved_10[2];                                                       /* 10..11 */
    uint32_t (*CheckName)(HostObject name);                                     /* 12: is NameTarget to be used? */
    void *reserved_13;                                                          /* 13 */
    uint32_t (*IsInteger)(HostObject object);                                   /* 14 */
    void *reserved_15[5];                                                       /* 15..19 */
    uint32_t (*IsName)(HostObject object);                                      /* 20 */
    uint32_t (*IsNumeric)(HostObject object);                                   /* 21: can ToDouble convert it? */
    void *reserved_22[3];                                                       /* 22..24 */
    uint32_t (*IsRtable)(HostObject object);                                    /* 25 */
    void *reserved_26[13];                                                      /* 26..38 */
    double (*ToDouble)(HostObject number);                                      /* 39 */
    void *reserved_40[2];                                                       /* 40..41 */
    int32_t (*ToInt)(HostObject integer);                                       /* 42: also true -> 1, false -> 0 */
    void *reserved_43[5];                                                       /* 43..47 */
    uint32_t (*NumArgs)(const HostObject *args);                                /* 48 */
    void *reserved_49[6];                                                       /* 49..54 */
    HostObject (*RtableCreate)(RtableSettings *s, void *data, int32_t *bounds); /* 55: data null: host allocates */
    void *(*RtableData)(HostObject rtable);                                     /* 56: first stored element */
    void (*RtableGetDefaults)(RtableSettings *settings);                        /* 57 */
    void (*RtableGetSettings)(RtableSettings *settings, HostObject rtable);     /* 58 */
    void *reserved_59[5];                                                       /* 59..63 */
    uint32_t (*RtableNumDims)(HostObject rtable);                               /* 64 */
    void *reserved_65[9];                                                       /* 65..73 */
    int32_t (*RtableUpperBound)(HostObject rtable, uint32_t dimension);         /* 74: 1 rows, 2 columns */
    void *reserved_75[4];                                                       /* 75..78 */
    HostObject (*NormalizeInteger)(HostObject integer);                         /* 79: completes a NewObject integer */
    void *reserved_80[11];                                                      /* 80..90 */
    HostObject (*ToInteger)(int32_t value);                                     /* 91 */
    void *reserved_92;                                                          /* 92 */
    HostObject (*ToFloat)(double value);                                        /* 93 */
    HostObject (*ToName)(const char *text, uint32_t global);                    /* 94: same text, same name */
    HostObject (*NullValue)(void);                                              /* 95 */
    void *reserved_96[3];                                                       /* 96..98 */
    HostObject (*ParseString)(const char *text);                                /* 99: the expression of a text */
    HostObject (*NameTarget)(HostObject name);                                  /* 100 */
} HostApi;

#define MODLA_SLOT(operation) (offsetof(HostApi, operation) / sizeof(void *))
MODLA_STATIC_ASSERT(sizeof(HostApi) == 101 * sizeof(void *) && MODLA_SLOT(Alloc) == 0 && MODLA_SLOT(NewObject) == 1 &&
                        MODLA_SLOT(AssignName) == 2 && MODLA_SLOT(Free) == 4 && MODLA_SLOT(RaiseError) == 5 &&
                        MODLA_SLOT(Evaluate) == 6 && MODLA_SLOT(CallProcedure) == 9 && MODLA_SLOT(CheckName) == 12 &&
                        MODLA_SLOT(IsInteger) == 14 && MODLA_SLOT(IsName) == 20 && MODLA_SLOT(IsNumeric) == 21 &&
                        MODLA_SLOT(IsRtable) == 25 && MODLA_SLOT(ToDouble) == 39 && MODLA_SLOT(ToInt) == 42 &&
                        MODLA_SLOT(NumArgs) == 48 && MODLA_SLOT(RtableCreate) == 55 && MODLA_SLOT(RtableData) == 56 &&
                        MODLA_SLOT(RtableGetDefaults) == 57 && MODLA_SLOT(RtableGetSettings) == 58 &&
                        MODLA_SLOT(RtableNumDims) == 64 && MODLA_SLOT(RtableUpperBound) == 74 &&
                        MODLA_SLOT(NormalizeInteger) == 79 && MODLA_SLOT(ToInteger) == 91 &&
                        MODLA_SLOT(ToFloat) == 93 && MODLA_SLOT(ToName) == 94 && MODLA_SLOT(NullValue) == 95 &&
                        MODLA_SLOT(ParseString) == 99 && MODLA_SLOT(NameTarget) == 100,
                    "the slots of HostApi");

/* ---- Entry points --------------------------------------------------------------------------------------------
 *
 * args[1]..args[n] are the arguments, n = NumArgs(args); args[0] is the host's and is never read.  Arguments are
 * checked strictly by position; the first failing check raises its message through RaiseError and nothing that the
 * caller owns has been written by then.  Should RaiseError return, the call ends with NullValue().
 */

/* Register(procedure): stores the procedure that maps a callback's name to the host procedure that does the
 * arithmetic for datatype "integer"; returns it.
 *   "incorrect number of arguments" */
MODLA_API HostObject modLA_Register(const HostApi *api, const HostObject *args);

/* The host procedure of a callback: the registered procedure applied to the parsed name.  Called by the library
 * itself; a procedure must have been registered. */
MODLA_API HostObject modLA_getfcn(const HostApi *api, const char *name);

/* Create(p, rows, columns [, fill | identity | random], datatype [, C_order | Fortran_order]): a new modp object, a
 * column Vector when columns = 0, a row Vector when rows = 0.  Without a fill value the entries are 0; a numeric fill
 * value is rounded, halves upward, and must then lie in 0..p-1.  Random entries come from the process's rand().  For
 * datatype "integer", random calls "cbRandMat"(p, 0, rows, 0, columns, object).
 *   "too few arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2, the number of rows, must be an integer"
 *   "argument 3, the number of columns, must be an integer"
 *   "number of rows must be nonnegative"
 *   "number of columns must be nonnegative"
 *   "at least one of 'rows' or 'columns' (second and third arguments) must be nonzero"
 *   "too few arguments, expected output object or fill value for argument 4"
 *   "fill value must be an integral numeric value in the range 0..modulus-1", for what is no number
 *   "too few arguments, expected output object for argument %1"
 *   those of process_datatype
 *   "expected ordering for argument %1, got %2"
 *   "too many arguments, starting at argument %1, %2"
 *   "when requesting identity, input must be specified as a square Matrix"
 *   those of validate_modulus, with the fill value */
MODLA_API HostObject modLA_Create(const HostApi *api, const HostObject *args);

/* Fill(p [, fill | random], object [, rows] [, columns]): overwrites the selected block; returns NullValue().  For
 * datatype "integer", random calls "cbRandMat"(p, row shift, rows, column shift, columns, view).
 *   "too few arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "fill value must be an integral numeric value in the range 0..modulus-1", for what is no number
 *   "too few arguments, expected output object for argument %1"
 *   those of process_subspec
 *   "too many arguments, starting at argument %1, %2"
 *   those of validate_modulus, with the fill value
 *   those of data_to_modLA_rtable, for the view */
MODLA_API HostObject modLA_Fill(const HostApi *api, const HostObject *args);

/* Copy(p [, upper | uppernodiag | lower | lowernodiag], block [, transpose] [, C_order | Fortran_order | block]):
 * copies the entries of a block (an object with optional row and column selections) as they are, into a new object,
 * in the source's order unless another is given, or into a block of the same datatype and shape.  With a triangle the
 * other entries are 0 in a new object and left alone in a given one.  Blocks may overlap.  Returns the new object or
 * NullValue().
 *   "too few arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "too few arguments", after the keyword
 *   those of process_subspec, for the source
 *   "expected output object or ordering for argument %1, got %2"
 *   those of process_subspec or new_modLA_rtable, for the target
 *   "too many arguments, starting at argument %1, %2"
 *   "input must be a square Matrix for special copy types"
 *   those of validate_modulus */
MODLA_API HostObject modLA_Copy(const HostApi *api, const HostObject *args);

/* Swap(p [, upper | uppernodiag | lower | lowernodiag], block [, transpose], block): exchanges the entries of two
 * blocks of the same datatype and shape, or those of a triangle; returns NullValue().  Blocks that overlap are
 * exchanged entry by entry in row order.
 *   "too few arguments"
 *   "argument 1, the modulus, must be an integer"
 *   those of process_subspec, for the first block
 *   "too few arguments"
 *   those of process_subspec, for the second
 *   "too many arguments, starting at argument %1, %2"
 *   "input must be a square Matrix for special swap types"
 *   those of validate_modulus */
MODLA_API HostObject modLA_Swap(const HostApi *api, const HostObject *args);

/* Permute(p, permutation, object, rows, reverse): exchanges line k of the object with line permutation[k], for k =
 * 1..n-1 or, with reverse = true, for k = n-1..1, n being the number of lines: rows (rows = true) or columns (false).
 * The permutation is a Vector of datatype integer[4] or integer with at least n-1 entries.  Returns NullValue().
 *   "incorrect number of arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2, the permutation, must be an rtable"
 *   "argument 3, the object to be permuted, must be an rtable"
 *   "argument 3 has invalid datatype"
 *   "argument 3 has invalid storage"
 *   "argument 4 must be 'true' or 'false'"
 *   "argument 5 must be 'true' or 'false'"
 *   "argument 2 must have integer datatype"
 *   "argument 2 has invalid storage"
 *   "argument 2 must be a Vector"
 *   "cannot specify a row permutation on a row vector"
 *   "cannot specify a column permutation on a column vector"
 *   "argument 3 must be a Matrix or Vector"
 *   "argument 2 must have at least one less element than the number of rows (columns) in the Matrix (Vector)"
 *   those of validate_modulus
 *   "invalid permutation vector", when the steps before the invalid entry have been made */
MODLA_API HostObject modLA_Permute(const HostApi *api, const HostObject *args);

/* Mod(p, input [, rows] [, columns] [, transpose] [, evaluations], block | datatype [, C_order | Fortran_order]): the
 * entries of the input mod p, in 0..p-1, in a new object or in a block.  The input is a table of any datatype, a list
 * or set of values (a column), a list or set of lists (rows; missing entries are 0), or a list or set of Vectors of one
 * kind (rows or columns).  Entries of datatype "integer" and of lists are expressions, evaluated as by modeval_iw; the
 * evaluations, an equation or a list or set of them, give residues to names, powers of names and the complex unit (of
 * equal left-hand sides the first counts).  Words are signed; doubles are rounded, halves upward.  A single index of the
 * block stands for a block of the input's shape; what a larger block holds beyond the input becomes 0.  The block may
 * overlap the input.  Returns the new object or NullValue().
 * Datatype "integer" calls "cbMod"(p, first row, last row, first column, last column, view) or, with evaluations,
 * "cbModEval" with the evaluations as seventh argument, once the values are in place as they are.
 *   "argument 1, the modulus, must be an integer"
 *   "too few arguments, expected input object for argument 2"
 *   those of process_flexinput
 *   "too few arguments, expected output object or description for argument %1"
 *   those of process_subspec for a block; those of process_datatype for a datatype
 *   "expected ordering for argument %1, got %2"
 *   "too many arguments, starting at argument %1, %2"
 *   those of validate_modulus
 *   "evaluation list/set can only be specified for algebraic input"
 *   "empty evaluation list/set not allowed"
 *   "evaluations must be a list/set of equations"
 *   "rhs of evaluation must be an integer in the range 0..modulus-1"
 *   "input has too many rows (columns) for specified output"; those of new_modLA_rtable
 *   "invalid input type", for a NaN; "float too large", beyond 2^53 - 1: before anything is written
 *   those of modeval_iw, which leave the block partly written */
MODLA_API HostObject modLA_Mod(const HostApi *api, const HostObject *args);

/* AddMult(p [, c], A [, transpose], B [, transpose] [, block | C_order | Fortran_order] [, sparse]): A + c*B mod p, c
 * = 1 by default, for blocks of the same datatype and shape, into a new object or into a block, which may overlap A
 * and B. A numeric c is rounded, halves upward, and must then lie in 0..p-1.  sparse never changes the result.
 * Returns the new object or NullValue().  Datatype "integer" calls "cbAddMult"(p, rows, columns, c, A, B, C), or
 * "cbAddMultShift" with row and column shift after each of the three views when one of them is not 0.
 *   "too few arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2 must be a multiplier or a modp Matrix/Vector"
 *   those of process_subspec, for A
 *   "too few arguments"
 *   those of process_subspec, for B
 *   "expected output object, ordering, or sparse option for argument %1, got %2"
 *   "must specify output ordering when input arguments have different ordering"
 *   those of process_subspec or new_modLA_rtable, for the sum
 *   "expected sparse option for argument %1, got %2"
 *   "too many arguments, starting at argument %1, %2"
 *   those of validate_modulus; "multiplier value must be an integral numeric value in the range 0..modulus-1" */
MODLA_API HostObject modLA_AddMult(const HostApi *api, const HostObject *args);

/* Multiply(p, s | A [, transpose], B [, transpose] [, C_order | Fortran_order] [, sparse] [, block [, sparse]]): s*B for
 * an integer s in 0..p-1, or A*B, mod p, into a new object, in the first object's order unless another is given, or
 * into a block, which may overlap the factors.  B has A's datatype and as many rows as A has columns.  sparse never
 * changes the result.  Returns the new object, NullValue() with a given output, or, for a row Vector times a column
 * Vector without one, the scalar: a host integer or float.  Products may create a workspace object.  Datatype
 * "integer" calls "cbScalMult"(p, m, n, s, B, C) or "cbMatMult"(p, m, k, n, A, B, C), with row and column shift after
 * each view as "cbScalMultShift" and "cbMatMultShift" when one of them is not 0.
 *   "too few arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2 must be a scalar or a modp Matrix/Vector"
 *   those of process_subspec, for A
 *   "too few arguments"
 *   those of process_subspec, for B
 *   "expected output object, ordering, or sparse option for argument %1, got %2"
 *   those of process_subspec, for the result
 *   "cannot perform scalar multiply on a zero dimensional object"
 *   "too many arguments, starting at argument %1, %2"
 *   those of validate_modulus; "scalar value must be an integral numeric value in the range 0..modulus-1" */
MODLA_API HostObject modLA_Multiply(const HostApi *api, const HostObject *args);

/* RowReduce(p, matrix, rows, columns, nred, det, pivprod, rank, pivsig, extra, form): row-reduces the block in place
 * and assigns the requested outputs; returns NullValue().  rows and columns: k (1..k; negative: from the end) or a
 * range; nred: how many leading columns may hold pivots, 0 = all; the outputs: a name, or 0 for none; form: true or 1
 * reduced row echelon form, false or 0 row echelon form, 2 reduced form that keeps non-invertible pivots.  Datatype
 * "integer" calls "cbReduce"(matrix, first row, last row, first column, last column, nred + 1, p, the five names or
 * 0, 0, mode, false), whose immediate integer result is the status.
 * On a kernel failure no output is assigned and the block is left partly reduced.
 *   "incorrect number of arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2, the matrix, must be an rtable"
 *   "argument 2 has invalid datatype"
 *   "argument 2 has invalid storage"
 *   "argument 2 must be a Matrix"
 *   "row range must be an integer or integer range"; "row range is out of bounds"
 *   "column range must be an integer or integer range", with a comma after "range" for an end that is no integer
 *   "column range is out of bounds"
 *   "number of reducible columns must be a nonnegative integer value"
 *   "number of reducible columns exceeds the number of columns in the specified matrix"
 *   those of validate_modulus
 *   "argument N must be a name or the value 0", N = 6..10
 *   "argument 11 must be 'true' or 'false'"
 *   "no inverse exists: modulus is composite"
 *   "matrix is singular"
 *   "matrix has more rows than columns, cannot compute determinant"
 *   "not implemented yet"
 *   "unknown error" */
MODLA_API HostObject modLA_RowReduce(const HostApi *api, const HostObject *args);

/* LUDecomp(p, matrix, permutation, det): factors a square Matrix in place as P*A = L*U: U on and above the diagonal,
 * the multipliers of the unit lower triangular L below it.  Entry k of the permutation, a Vector of datatype integer[4]
 * or integer with at least n-1 entries, becomes the row that row k was exchanged with.  det: a name, or 0.  Returns
 * NullValue().  Datatype "integer" calls "cbLUDecomp"(matrix, permutation, n, p, det), whose result is the status.
 * On a failure the Matrix is left partly factored; the permutation holds the steps made, or zeros in host integers.
 *   "incorrect number of arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2, the matrix, must be an rtable"
 *   "argument 3, the permutation, must be an rtable"
 *   "argument 2 has invalid datatype"
 *   "argument 2 has invalid storage"
 *   "argument 2 must be a Matrix"
 *   "argument 2 must be a square Matrix"
 *   "argument 3 must have integer datatype"
 *   "argument 3 has invalid storage"
 *   "argument 3 must be a Vector"
 *   "argument 3 must have at least one less element than the matrix dimension"
 *   those of validate_modulus
 *   "argument 4 must be a name or the value 0"
 *   "no LU decomposition exists: modulus is composite"
 *   "matrix is singular"
 *   "unknown error" */
MODLA_API HostObject modLA_LUDecomp(const HostApi *api, const HostObject *args);

/* ForSub(p, L, B, unit) and BackSub(p, U, B): solve L*X = B, U*X = B for a square lower (upper) triangular Matrix and a
 * right-hand side of the same datatype and order, a Matrix or a column Vector, which X overwrites and which may share
 * entries with the triangular Matrix.  Only the triangle is read, and with unit = true not its diagonal.  Return NullValue().  Datatype "integer" calls "cbForSub"(L, n, B,
 * number of columns or 0, p, unit) or "cbBackSub"(U, n, B, number of columns or 0, p), whose result is the status.
 * On a failure B is left partly solved.
 *   "incorrect number of arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2, the lower (upper) triangular matrix, must be an rtable"
 *   "argument 3, the right hand side, must be an rtable"
 *   "argument 2 has invalid datatype"
 *   "argument 2 has invalid storage"
 *   "argument 2 must be a square Matrix"
 *   "argument 4 must be 'true' or 'false'"
 *   "arguments 2 and 3 must have the same datatype"
 *   "arguments 2 and 3 must have the same ordering"
 *   "argument 3 has invalid storage"
 *   "argument 3 must be a Matrix or column Vector"
 *   "argument 3 must have as many rows as columns in argument 2"
 *   those of validate_modulus
 *   "cannot forward (backward) substitute: modulus is composite"
 *   "matrix is singular"
 *   "not implemented yet"
 *   "unknown error" */
MODLA_API HostObject modLA_ForSub(const HostApi *api, const HostObject *args);
MODLA_API HostObject modLA_BackSub(const HostApi *api, const HostObject *args);

/* Determinant(p, matrix, rows, columns, det): assigns the determinant of a square block, given by row and column ranges
 * as for RowReduce, to a name; the block is left reduced.  Any modulus.  Returns NullValue().  Datatype "integer" calls
 * "cbReduce"(matrix, first row, last row, first column, last column, last column + 1, p, det, 0, 0, 0, 0, 0, 0, true).
 *   as for RowReduce up to the ranges
 *   "input Matrix must be square"
 *   those of validate_modulus
 *   "argument 5, determinant output, must be a name"
 *   "unknown error" */
MODLA_API HostObject modLA_Determinant(const HostApi *api, const HostObject *args);

/* MatBasis(p, matrix, k, nullspace): reduces the first k rows (0 = all) to reduced row echelon form, so that the leading
 * rows are a basis of the space that they span, and returns its dimension.  With nullspace = true, the rows that follow
 * receive a basis of the nullspace.  Non-invertible pivots are kept, but admit no nullspace.  Datatype "integer" calls
 * "cbReduce"(matrix, 1, k, 1, columns, columns + 1, p, 0, 0, rank, 0, 0, pivots, 2, false), where rank is a local name
 * and pivots an integer[4] Vector for the pivot columns, or 0.
 *   "incorrect number of arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2, the matrix, must be an rtable"
 *   "argument 2 has invalid datatype"
 *   "argument 2 has invalid storage"
 *   "argument 2 must be a Matrix"
 *   "number of vectors (rows) must be a nonnegative integer value"
 *   "number of vectors (rows) cannot be greater than the number of Matrix rows"
 *   those of validate_modulus
 *   "argument 4 must be 'true' or 'false'"
 *   "Matrix rows cannot be less than columns when nullspace is requested"
 *   "unable to compute nullspace: modulus is composite"
 *   "unknown error" */
MODLA_API HostObject modLA_MatBasis(const HostApi *api, const HostObject *args);

/* MatGcd(p, matrix, k): the greatest common divisor of k polynomials, given by the first k rows of a Matrix with the
 * coefficient of x^j in column j, from 0.  Euclid's algorithm leaves it in row 0, not made monic, with zeros in the
 * other k-1 rows, and its degree is returned, -1 when all are zero.  Datatype "integer" calls "cbMatGcd"(matrix, k,
 * columns, p), whose immediate integer result is the degree or the status -2 (composite) or -10.
 * A composite modulus is found out only when a leading coefficient has no inverse; the rows are then left partly
 * reduced.
 *   "incorrect number of arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2, the matrix, must be an rtable"
 *   "argument 3, the number of polynomials, must be a positive integer", when it is no integer
 *   "argument 2 has invalid datatype"
 *   "argument 2 has invalid storage"
 *   "argument 2 must be a Matrix"
 *   "argument 3, the number of polynomials must be a positive integer", when it is below 1 or not immediate
 *   "argument 3, the number of polynomials cannot be greater than the number of rows in the input Matrix"
 *   those of validate_modulus
 *   "unable to compute gcd: modulus is composite"
 *   "not implemented yet"
 *   "unknown error" */
MODLA_API HostObject modLA_MatGcd(const HostApi *api, const HostObject *args);

/* ZigZag(p, matrix): transforms a square Matrix in place into a similar one in zigzag form; returns NullValue().
 * The form is a chain of diagonal blocks, alternately
 *   column blocks: each column before the last holds a single 1, below the diagonal; the last column is free;
 *   row blocks: each row before the last holds a single 1, above the diagonal; the last row is free.
 * Outside the blocks there is at most a single 1 between two neighbours: in the first row of a column block and the
 * first column of the row block after it, or in the first column of a row block and the first row of the column block
 * after it.  The characteristic polynomial, which is that of the given Matrix, is the product of those of the blocks.
 * (A. Storjohann, An O(n^3) algorithm for the Frobenius normal form, ISSAC 1998.)
 * Datatype "integer" calls "cbZigZag"(matrix, n, p), whose immediate integer result is the status: 0, 1 (composite) or
 * 10.  A composite modulus is found out only when a pivot has no inverse; the Matrix is then left partly transformed.
 *   "incorrect number of arguments"
 *   "argument 1, the modulus, must be an integer"
 *   "argument 2 must be a square Matrix", for what is no table
 *   "argument 2 has invalid datatype"
 *   "argument 2 has invalid storage"
 *   "argument 2 must be a square Matrix"
 *   those of validate_modulus
 *   "cannot obtain zigzag form: modulus is composite"
 *   "not implemented yet"
 *   "unknown error" */
MODLA_API HostObject modLA_ZigZag(const HostApi *api, const HostObject *args);

/* ---- Binding helpers --------------------------------------------------------------------------------------- */

/* The datatype code that an argument denotes (0, 4, 6), or -1.  mode 0 raises "expected datatype ('%1', 'float[8]',
 * or 'integer'), for argument %2, got %3", mode 1 "expected output object or datatype (...)...", other modes nothing. */
MODLA_API int32_t process_datatype(const HostApi *api, HostObject object, int32_t mode, int32_t argno);

/* Checks the modulus, and a fill value or multiplier, for a datatype.  out_modulus: int32_t, double or HostObject, by
 * datatype; out_fill: the residue in the same representation, or null; fill: the value, or null for default_fill; word
 * names its role in the message "%s value must be an integral numeric value in the range 0..modulus-1".
 * "argument 1, the modulus, must be an integer"; "modulus is too large for '%1' datatype, must be < %2"; "modulus is
 * too large for 'float[8]' datatype, must be < 33554432"; "modulus must be at least 2"; "modulus must be an integer >
 * 1"; "modp object has invalid datatype". */
MODLA_API void validate_modulus(const HostApi *api, HostObject modulus, void *out_modulus, int32_t datatype,
                                const HostObject *fill, void *out_fill, const char *word, int32_t default_fill);

/* Checks a modulus for datatype "integer": "modulus must be at least 2"; "modulus must be an integer > 1". */
MODLA_API void validate_integer_modulus(const HostApi *api, HostObject modulus);

/* 0 when 0 <= value < modulus, else 1, for host integers.  The sign of a value that is not immediate is not examined
 * when the modulus is not immediate either. */
MODLA_API int32_t validate_integer_value(HostObject modulus, HostObject value);

/* The first index in list[0..n-1] of x (e the immediate integer 1) or of the power x^e; -1 when there is none. */
MODLA_API int32_t isUnkn(HostObject x, HostObject e, const HostObject *list, int32_t n);

/* A new object with the host's storage, entries not initialised: a Matrix, or a column (row) Vector when columns
 * (rows) = 0.  "object for create cannot be zero dimensional". */
MODLA_API HostObject new_modLA_rtable(const HostApi *api, int32_t rows, int32_t columns, int32_t datatype,
                                      int32_t order);

/* A Matrix of datatype "integer" over the block of parent (or 0) that starts at data, has rows x columns entries and
 * the given steps; the parent itself when the block starts where it starts.  A view spans whole lines; where it would
 * run past the parent's end it starts earlier, by *out_row_shift or *out_column_shift entries.
 * "invalid datatype for new rtable"; "invalid input (row use) for new rtable"; "invalid input (column use) for new
 * rtable"; "invalid input (ordering parameters) for new rtable"; "internal error". */
MODLA_API HostObject data_to_modLA_rtable(const HostApi *api, HostObject parent, void *data, int32_t rows,
                                          int32_t columns, int32_t row_step, int32_t column_step,
                                          int32_t *out_row_shift, int32_t *out_column_shift);

/* Reads object [, row selection] [, column selection] [, transpose] at args[*position], advances *position past it and
 * returns the address of the first selected entry.  required_datatype: -1 = any; required_rows and required_columns:
 * -1 = any, 0 = a row (column) object, > 0 = that many, where a single index means a block of that size.  Counts of 0
 * mark row and column objects; steps are in elements; out pointers may be null.
 * "argument %1 must be a modp Matrix or Vector"; "argument %1 has incorrect datatype"; "argument %1 has invalid
 * datatype"; "argument %1 has invalid storage"; "argument %1 must be a Matrix or Vector"; "Matrix index out of range";
 * "Vector index out of range"; "row range cannot be empty"; "column range cannot be empty"; "argument %1 is a row
 * object where prior arguments require a row dimension"; "argument %1 has a row dimension where prior arguments require
 * a row object"; "argument %1 has a different number of rows than required by prior arguments"; "argument %1 has more
 * (fewer) rows than required by prior arguments"; "argument %1 shortcut specification has fewer rows than required by
 * prior arguments"; the same for columns; "internal error". */
MODLA_API void *process_subspec(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                                int32_t required_datatype, int32_t required_rows, int32_t required_columns,
                                int32_t allow_transpose, int32_t *out_datatype, int32_t *out_order, int32_t *out_rows,
                                int32_t *out_row_step, int32_t *out_columns, int32_t *out_column_step);

/* Reads an input that is a table, or a list or set of values, of lists or of Vectors, then [, rows] [, columns] [,
 * transpose], at args[*position], and advances *position past it.  out_dimensions: 1 or 2.  The (first, count, step)
 * triples tell which lines and entries are selected: first from 1 (0 along a missing dimension), count 0 for a single
 * index or a missing dimension, step in entries of a table (0 for lists).  The first triple runs along the rows of a
 * table, the elements of a list, or the entries of a row Vector; with *in_out_transposed, 0 before the call, it
 * describes the columns of the result.  A list of column Vectors sets *out_vectors_were_columns, and is transposed.
 * Nothing is stored when a check fails; out pointers may be null.
 * "argument %1 must be a set, list, or Matrix/Vector"; "argument %1 has invalid datatype"; "argument %1 must have
 * rectangular storage"; "argument %1 cannot be an 'Array', use 'Matrix' or 'Vector' instead"; "argument %1 cannot be an
 * empty list/set"; "argument %1 list/set elements must be lists, sets or vectors"; "argument %1 vectors have invalid
 * datatype"; "argument %1 vectors must have rectangular storage"; "argument %1 vectors cannot be empty"; "argument %1
 * vectors must be of uniform type"; "argument %1 vectors must have a uniform number of elements"; "argument %1 cannot be
 * a list/set with mixed object types"; "argument %1 row specification out of range"; "argument %1 cannot have empty row
 * range"; the last two for columns. */
MODLA_API void process_flexinput(const HostApi *api, const HostObject *args, int32_t *position, int32_t n,
                                 int32_t *out_datatype, int32_t *out_dimensions, int32_t *out_is_list,
                                 int32_t *out_list_of_lists, int32_t *out_first, int32_t *out_count, int32_t *out_step,
                                 int32_t *out_second_first, int32_t *out_second_count, int32_t *out_second_step,
                                 int32_t *in_out_transposed, int32_t *out_vectors_were_columns);

/* ---- Scalar helpers ------------------------------------------------------------------------------------------
 *
 * Word twins (_iw): residues are uint32_t, p <= 65535.  Float twins (_f): residues are doubles holding integers,
 * p <= 33554431, pinv = (1 + 2^-52)/p.  The no-inverse mark is 65536 in words and -1.0 in floats.
 */

/* a^e mod p; e < 0: the inverse of a^|e|, or the no-inverse mark. */
MODLA_API uint32_t modpow_iw(uint32_t a, int32_t e, uint32_t p);
MODLA_API double modpow_f(double a, int32_t e, double p, double pinv);

/* The inverse of a mod p in 1..p-1, or the no-inverse mark (also for a = 0). */
MODLA_API uint32_t modinverse_iw(uint32_t a, uint32_t p);
MODLA_API double modinverse_f(double a, double p, double pinv);

/* A host integer that is not immediate, mod p; a negative multiple of p gives p. */
MODLA_API uint32_t modtolvexint_iw(HostObject integer, uint32_t p);
MODLA_API double modtolvexint_f(HostObject integer, double p, uint32_t unused, double pinv);

/* x^e mod p, |e| >= 1, from the 32-entry power table of x: entry 0 is x, entry i-1 x^i (i = 2..16), entry 16+k
 * x^(2^(k+1)), each the no-inverse mark until it is known; computed squarings are stored. */
MODLA_API uint32_t modunknpow_iw(uint32_t *table, int32_t e, uint32_t p);
MODLA_API double modunknpow_f(double *table, int32_t e, double p, double pinv);

/* The value at x of a modp1 polynomial (word 2: its modulus; words 3..: coefficients from degree 0, immediate integers
 * when that modulus exceeds 46327, plain residues otherwise), from the power table of x, which is extended. */
MODLA_API uint32_t modzppolyeval_iw(HostObject poly, uint32_t *table, uint32_t p);
MODLA_API double modzppolyeval_f(HostObject poly, double *table, double p, double pinv);

/* The residue of an expression: integers, rationals, complex numbers, sums, products, powers and modp1 polynomials over
 * names[0..n-1] (names, powers of names, the complex unit), whose values and powers are in the tables, 32 residues
 * each, end to end.  A negative multiple of p that stands alone gives p.  The recursion is as deep as the nesting.
 * "division by zero"; "unable to evaluate to modp values", for a complex number without a listed unit; "unable to mod
 * input containing variable exponents"; "exponent too large", for one that is not immediate; "internal error 2", for an
 * integer factor with an exponent; "internal error", for a coefficient that is no integer; "unable to mod input
 * containing modp2 polynomials"; "modp1 polynomial modulus must be the same as the modp modulus"; "unable to mod input,
 * cannot evaluate %1 to an integer".  Returns 0 should RaiseError return. */
MODLA_API uint32_t modeval_iw(const HostApi *api, uint32_t p, HostObject object, const HostObject *names,
                              uint32_t *tables, int32_t n);
MODLA_API double modeval_f(const HostApi *api, double p, uint32_t unused, HostObject object, const HostObject *names,
                           double *tables, int32_t n, double pinv);

/* A machine integer as a host integer. */
MODLA_API HostObject M_INTtoTolvexInt(const HostApi *api, int32_t value);

/* A double as a host integer, rounded (halves upward up to 2^30, away from zero beyond); a NaN gives 0.
 * "float too large" beyond 2^53 - 1 in magnitude. */
MODLA_API HostObject floattoTolvexInt_32(const HostApi *api, double value);

/* Random residues, each equally likely, at storage[i*rstride + j*cstride]; the source is the C library's rand(), which
 * is never seeded here.  "problem with rand() and modulus" unless 2 <= p <= 2^31. */
MODLA_API void rand_fill_iw(const HostApi *api, int32_t rows, int32_t cols, uint32_t *storage, int32_t rstride,
                            int32_t cstride, uint32_t p);
MODLA_API void rand_fill_f(const HostApi *api, int32_t rows, int32_t cols, double *storage, int32_t rstride,
                           int32_t cstride, double p);

/* ---- Row-reduction kernels -----------------------------------------------------------------------------------
 *
 * Row echelon or reduced row echelon form of the nrows x ncols block at A, in place, entry (i, j) at i*ld + j (_C_) or
 * j*ld + i (_F_).  Gauss-Jordan elimination with Euclidean row steps where a column holds several non-invertible
 * entries and no invertible one (composite p).
 *   A         entries 0..p-1; entries >= p are reduced first
 *   nred      columns 0..nred-1 may hold pivots; the others are carried along
 *   p, pinv   the modulus and (1 + 2^-52)/p, which the word kernels ignore
 *   det       null or: the determinant of the leading nrows x nrows part
 *   pivprod   null or: the product of the invertible pivots, negated at each of their row exchanges
 *   rank      null or: the number of pivot rows
 *   pivsig    null or: the sum over the pivots of (pivot row, from 1) * (pivot column, from 0), mod 2^32
 *   extra     null or: the number of nonzero rows left below the rank in columns nred.., which are moved up
 *   pivcols   null or nrows cells: the pivot columns; rows rank..nred-1 (which must exist, also beyond nrows) then
 *             receive a basis of the right nullspace of the leading nred columns
 *   mode      0 row echelon form; 1 reduced; 2 reduced, accepting non-invertible pivots
 *   detonly   nonzero: determinant only (mode 0): non-invertible pivots are accepted, a zero determinant ends the run
 *   pending   nrows counters, overwritten (_nop)
 *   maxpending  row updates that a row may take before it is reduced: p-1 + maxpending*(p-1)^2 must stay below 2^32
 *             (words) or 2^53 (floats) (_nop)
 * Status: 0 done; 1 a column holds a single nonzero, not invertible, and mode and detonly do not accept it; 2 a row
 * below the rank is nonzero in the other columns and extra is null (rank is not written); 3 invalid request (nothing
 * written): pivcols without rank, with mode 0 or with extra; detonly with mode != 0; det or pivprod with nrows > ncols;
 * 4 no nullspace rows because a non-invertible pivot was accepted.  All entries are in 0..p-1 on every return but 3.
 */
#define MODLA_REDUCE_ARGUMENTS(W)                                                                                      \
    W *A, int32_t nrows, int32_t ncols, int32_t nred, int32_t ld, W p, double pinv, W *det, W *pivprod, int32_t *rank, \
        int32_t *pivsig, int32_t *extra, int32_t *pivcols, int32_t mode, int32_t detonly

MODLA_API uint32_t modLA_reduce_C_iw(MODLA_REDUCE_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_reduce_F_iw(MODLA_REDUCE_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_reduce_C_iw_nop(MODLA_REDUCE_ARGUMENTS(uint32_t), int32_t *pending, int32_t maxpending);
MODLA_API uint32_t modLA_reduce_F_iw_nop(MODLA_REDUCE_ARGUMENTS(uint32_t), int32_t *pending, int32_t maxpending);
MODLA_API uint32_t modLA_reduce_C_f_nop(MODLA_REDUCE_ARGUMENTS(double), int32_t *pending, int32_t maxpending);
MODLA_API uint32_t modLA_reduce_F_f_nop(MODLA_REDUCE_ARGUMENTS(double), int32_t *pending, int32_t maxpending);

/* ---- Factorisation and substitution kernels ------------------------------------------------------------------
 *
 * modLA_LU: the n x n matrix A becomes L and U as LUDecomp says; perm: n-1 cells; det null or the determinant; pending:
 * n counters, overwritten; maxpending as above.  Entries >= p are reduced first.
 * Status: 0 done; 1 a column's first nonzero entry has no inverse; 2 a column has none.
 */
#define MODLA_LU_ARGUMENTS(W) \
    W *A, int32_t *perm, int32_t n, int32_t ld, W p, double pinv, W *det, int32_t *pending, int32_t maxpending

MODLA_API uint32_t modLA_LU_C_iw_nop(MODLA_LU_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_LU_F_iw_nop(MODLA_LU_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_LU_C_f_nop(MODLA_LU_ARGUMENTS(double));
MODLA_API uint32_t modLA_LU_F_f_nop(MODLA_LU_ARGUMENTS(double));

/* modLA_ForSub, modLA_BackSub: solve T*X = B, X in place of B, for the n x n lower (upper) triangular matrix T.  B has
 * nrhs columns and the leading dimension ldB, or is a vector with entries ldB apart (nrhs = 0).  unitdiag: the diagonal
 * is not read.  The other triangle is never read.  Entries >= p stand for their residues.
 * Status: 0 done; 1 a diagonal entry has no inverse; 2 one is 0. */
#define MODLA_BACKSUB_ARGUMENTS(W) \
    const W *T, int32_t n, int32_t ldT, W *B, int32_t nrhs, int32_t ldB, W p, double pinv, int32_t maxpending
#define MODLA_FORSUB_ARGUMENTS(W)                                                                            \
    const W *T, int32_t n, int32_t ldT, W *B, int32_t nrhs, int32_t ldB, W p, double pinv, int32_t unitdiag, \
        int32_t maxpending

MODLA_API uint32_t modLA_ForSub_C_iw_nop(MODLA_FORSUB_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_ForSub_F_iw_nop(MODLA_FORSUB_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_ForSub_C_f_nop(MODLA_FORSUB_ARGUMENTS(double));
MODLA_API uint32_t modLA_ForSub_F_f_nop(MODLA_FORSUB_ARGUMENTS(double));
MODLA_API uint32_t modLA_BackSub_C_iw_nop(MODLA_BACKSUB_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_BackSub_F_iw_nop(MODLA_BACKSUB_ARGUMENTS(uint32_t));
MODLA_API uint32_t modLA_BackSub_C_f_nop(MODLA_BACKSUB_ARGUMENTS(double));
MODLA_API uint32_t modLA_BackSub_F_f_nop(MODLA_BACKSUB_ARGUMENTS(double));

/* ---- Polynomial gcd and zigzag kernels -----------------------------------------------------------------------
 *
 * p and pinv as above.  All entries that are worked on are in 0..p-1 on every return; others stand for their residues.
 *
 * modLA_RowGcd: the gcd of the polynomials in rows 0..k-1, as MatGcd says; k < 2: row 0 alone.  cols: columns;
 * stride: elements from row to row (_C_) or from column to column (_F_); c: multiples that a row may absorb before it
 * is reduced: p-1 + c*(p-1)^2 must stay below 2^32 (words) or 2^53 (floats), and less than 1 means 1.  The result does
 * not depend on c.
 * Returns the degree, -1 for zero, or -2 when a leading coefficient has no inverse. */
#define MODLA_ROW_GCD_ARGUMENTS(W) W *data, int32_t k, int32_t cols, int32_t stride, W p, double pinv, int32_t c

MODLA_API int32_t modLA_RowGcd_C_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t));
MODLA_API int32_t modLA_RowGcd_F_iw(MODLA_ROW_GCD_ARGUMENTS(uint32_t));
MODLA_API int32_t modLA_RowGcd_C_f(MODLA_ROW_GCD_ARGUMENTS(double));
MODLA_API int32_t modLA_RowGcd_F_f(MODLA_ROW_GCD_ARGUMENTS(double));

/* modLA_ZigZag: the zigzag form of the n x n matrix data, as ZigZag says, stored without gaps.  count is not used.
 * Status: 0 done; 1 a pivot has no inverse. */
#define MODLA_ZIGZAG_ARGUMENTS(W) W *data, int32_t n, W p, double pinv, int32_t count

MODLA_API int32_t modLA_ZigZag_C_iw(MODLA_ZIGZAG_ARGUMENTS(uint32_t));
MODLA_API int32_t modLA_ZigZag_F_iw(MODLA_ZIGZAG_ARGUMENTS(uint32_t));
MODLA_API int32_t modLA_ZigZag_C_f(MODLA_ZIGZAG_ARGUMENTS(double));
MODLA_API int32_t modLA_ZigZag_F_f(MODLA_ZIGZAG_ARGUMENTS(double));

/* ---- Product kernels -----------------------------------------------------------------------------------------
 *
 * C = A*B mod p for an m x k matrix A, a k x n matrix B and an m x n matrix C, all sizes at least 1; entry (i, j) of X
 * lies at i*xrs + j*xcs.  A and B hold residues 0..p-1; C does not overlap them and is overwritten with residues.
 * Steps may be negative.
 *   L       products that may be added to a residue: floor((2^32 - p)/(p-1)^2) (words), floor((2^53 - p)/(p-1)^2)
 *           (floats), at most 2147483646
 *   T       2^32 - 1 - (p-1)^2 or 2^53 - 1 - (p-1)^2; not used by the schedules
 *   sparse  nonzero: zeros of A are worth a test; never changes the result
 */
#define MODLA_PRODUCT_ARGUMENTS(W)                                                                                    \
    W p, double pinv, int32_t m, int32_t k, int32_t n, const W *A, int32_t ars, int32_t acs, const W *B, int32_t brs, \
        int32_t bcs, W *C, int32_t crs, int32_t ccs

/* Any product.  Words: Strassen's recursion when m, k and n all exceed the threshold; floats: CBLAS where k <= L, else
 * Strassen's recursion or the classical product by size.  workspace: `length` entries, or null and 0; when more are
 * needed, a 1 x w object is created in the host and returned; else NullValue(). */
MODLA_API HostObject modLA_MatMult_iw(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t sparse,
                                      uint32_t *workspace, int32_t length, int32_t threshold);
MODLA_API HostObject modLA_MatMult_f(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(double), int32_t sparse,
                                     double *workspace, int32_t length);

/* The classical product; the members of the families differ in the schedule that the caller has room for: E reduces
 * after every product, N after L products, 1 once (L > k); S skips zeros, N does not. */
MODLA_API void modLA_MatMatMult_iw(MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t L, uint32_t T, int32_t sparse);
MODLA_API void modLA_MatMatMult_f(MODLA_PRODUCT_ARGUMENTS(double), int32_t L, double T, int32_t sparse);
MODLA_API void modLA_MatMatMult_iw_SE(MODLA_PRODUCT_ARGUMENTS(uint32_t));
MODLA_API void modLA_MatMatMult_iw_SN(MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t L);
MODLA_API void modLA_MatMatMult_iw_S1(MODLA_PRODUCT_ARGUMENTS(uint32_t));
MODLA_API void modLA_MatMatMult_iw_NE(MODLA_PRODUCT_ARGUMENTS(uint32_t));
MODLA_API void modLA_MatMatMult_iw_NN(MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t L);
MODLA_API void modLA_MatMatMult_iw_N1(MODLA_PRODUCT_ARGUMENTS(uint32_t));
MODLA_API void modLA_MatMatMult_f_SN(MODLA_PRODUCT_ARGUMENTS(double), int32_t L, double T);
MODLA_API void modLA_MatMatMult_f_S1(MODLA_PRODUCT_ARGUMENTS(double));
MODLA_API void modLA_MatMatMult_f_NN(MODLA_PRODUCT_ARGUMENTS(double), int32_t L, double T);
MODLA_API void modLA_MatMatMult_f_N1(MODLA_PRODUCT_ARGUMENTS(double));

/* Through CBLAS where layout and size allow it, else classically. */
MODLA_API void modLA_MatMatBLAS(MODLA_PRODUCT_ARGUMENTS(double), int32_t L, double T, int32_t sparse);

/* Strassen's recursion in Winograd's form (Winograd, 1971).  The workspace holds, for every level with the halved sizes
 * m', k', n', (m' + n')*k' + 2*m'*n' entries.  Words: down to sizes of at most the threshold (at least 1).  Floats, mode
 * 1: until k <= L, then CBLAS; mode 0: as long as the measured cost of a level is below that of the classical product. */
MODLA_API void modLA_StrMatMult_iw(MODLA_PRODUCT_ARGUMENTS(uint32_t), uint32_t *workspace, int32_t L, uint32_t T,
                                   int32_t sparse, int32_t threshold);
MODLA_API void modLA_StrMatMult_f(MODLA_PRODUCT_ARGUMENTS(double), double *workspace, int32_t L, double T,
                                  int32_t sparse, int32_t mode);

/* Sums and differences of blocks of residues.  The sum is below p; the difference of equal entries is p, which stands
 * for 0.  C may be the same block as A or B. */
#define MODLA_BLOCK_SUM_ARGUMENTS(W)                                                                                   \
    W p, int32_t rows, int32_t cols, const W *A, int32_t ars, int32_t acs, const W *B, int32_t brs, int32_t bcs, W *C, \
        int32_t crs, int32_t ccs

MODLA_API void modLA_MatMatAdd_iw(MODLA_BLOCK_SUM_ARGUMENTS(uint32_t));
MODLA_API void modLA_MatMatAdd_f(MODLA_BLOCK_SUM_ARGUMENTS(double));
MODLA_API void modLA_MatMatSub_iw(MODLA_BLOCK_SUM_ARGUMENTS(uint32_t));
MODLA_API void modLA_MatMatSub_f(MODLA_BLOCK_SUM_ARGUMENTS(double));

#ifdef __cplusplus
}
#endif

#endif
