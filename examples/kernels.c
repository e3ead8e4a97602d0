/* The kernels on a program's own arrays: no host is needed.  docs/embedding.md walks through it. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "modla.h"

/* A little more than 1/p: what the kernels for doubles multiply by instead of dividing. */
static double inverse_of(double p) {
    return (1 + 0x1p-52) / p;
}

/* How many products of residues may be added to a residue before the sum has to be reduced: what is called L in the
 * product kernels, maxpending in those of elimination and c in gcds.  limit: 2^32 for words, 2^53 for doubles. */
static int32_t delay(double limit, double p) {
    const double room = (limit - p) / ((p - 1) * (p - 1));
    return room < 2147483646 ? (int32_t)room : 2147483646;
}

/* Rank, determinant and nullspace of a matrix of words. */
static void reduce_words(void) {
    enum { n = 4, p = 101 };
    uint32_t A[n][n] = {{16, 2, 3, 13}, {5, 11, 10, 8}, {9, 7, 6, 12}, {4, 14, 15, 1}}, det;
    int32_t rank, pivots[n], pending[n];
    const uint32_t status = modLA_reduce_C_iw_nop(&A[0][0], n, n, n, n, p, 0, &det, NULL, &rank, NULL, NULL, pivots, 1,
                                                  0, pending, delay(0x1p32, p));
    if (status != 0) exit(1);
    printf("Modulo %d: rank %d, determinant %u\n", (int)p, (int)rank, det);
    for (int i = rank; i < n; i++) printf("In the nullspace: (%u, %u, %u, %u)\n", A[i][0], A[i][1], A[i][2], A[i][3]);
}

/* The polynomial through n points by the LU decomposition of their Vandermonde matrix V: P*V = L*U, V*c = y. */
static void solve_doubles(void) {
    enum { n = 5, p = 33554393 };
    const double pinv = inverse_of(p);
    const int32_t maxpending = delay(0x1p53, p);
    double V[n][n], c[n] = {7, 13, 63, 265, 799}; /* at 0, 1, 2, 3, 4 */
    int32_t permutation[n - 1], pending[n];
    for (int i = 0; i < n; i++) {
        for (int j = 0; j < n; j++) V[i][j] = j == 0 ? 1 : i * V[i][j - 1];
    }
    if (modLA_LU_C_f_nop(&V[0][0], permutation, n, n, p, pinv, NULL, pending, maxpending) != 0) exit(1);
    for (int k = 0; k < n - 1; k++) { /* row k + 1 was exchanged with this one, counted from 1 */
        const double moved = c[k];
        c[k] = c[permutation[k] - 1];
        c[permutation[k] - 1] = moved;
    }
    if (modLA_ForSub_C_f_nop(&V[0][0], n, n, c, 0, 1, p, pinv, 1, maxpending) != 0) exit(1);
    if (modLA_BackSub_C_f_nop(&V[0][0], n, n, c, 0, 1, p, pinv, maxpending) != 0) exit(1);
    printf("Modulo %d: %.0f + %.0f*x + %.0f*x^2 + %.0f*x^3 + %.0f*x^4\n", (int)p, c[0], c[1], c[2], c[3], c[4]);
}

/* A product of doubles.  Any steps will do: B is the transpose of A here, by exchanging the two steps of A. */
static void multiply_doubles(void) {
    enum { m = 2, k = 3, p = 33554393 };
    const double A[m][k] = {{p - 1, 2, 3}, {4, 5, p - 6}}, limit = 0x1p53 - 1 - (p - 1.0) * (p - 1.0);
    double C[m][m];
    modLA_MatMatMult_f(p, inverse_of(p), m, k, m, &A[0][0], k, 1, &A[0][0], 1, k, &C[0][0], m, 1, delay(0x1p53, p),
                       limit, 0);
    printf("A times its transpose: [%.0f %.0f] [%.0f %.0f]\n", C[0][0], C[0][1], C[1][0], C[1][1]);
}

int main(void) {
    reduce_words();
    solve_doubles();
    multiply_doubles();
    return 0;
}
