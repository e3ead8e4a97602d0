// What ForSub and BackSub share.
#pragma once

#include "host/modulus.h"
#include "host/table.h"
#include "modla.h"

namespace modla {

// A triangular Matrix and the right-hand sides that the solution overwrites.
struct TriangularSystem {
    Block triangle, rhs;
    bool unit_diagonal;
    Scalar modulus;
    void *held;  // the memory of a copied triangle, or null
};

// Arguments 1 to 3, and with `takes_diagonal` argument 4 in its place among the checks.  role: "lower triangular
// matrix" or "upper triangular matrix".
bool read_triangular_system(const HostApi *api, const HostObject *args, const char *role, bool takes_diagonal,
                            TriangularSystem *system);

// Puts a copy in the triangle's place where writing the solution would destroy entries still to be read: a new object
// of host integers, or memory from the host.  False when the host had none.
bool protect_triangle(const HostApi *api, TriangularSystem *system);

// Solves a system of words or doubles and returns the status; the copy is freed.
uint32_t solve_natively(const HostApi *api, const TriangularSystem &system, bool forward);

// Raises the message of a status: composite is the one for status 1.
void report_solution(const HostApi *api, uint32_t status, const char *composite);

}  // namespace modla
