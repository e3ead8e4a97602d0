/* Another BLAS in the process: its names are those of CBLAS and of the Fortran interface, its results are wrong. */
int decoy_calls = 0;

#define DECOY(name)     \
    double name(void);  \
    double name(void) { \
        decoy_calls++;  \
        return 0;       \
    }

DECOY(cblas_dgemm)
DECOY(cblas_dgemv)
DECOY(cblas_ddot)
DECOY(cblas_daxpy)
DECOY(cblas_dswap)
DECOY(cblas_dscal)
DECOY(cblas_dcopy)
DECOY(dgemm_)
DECOY(dgemv_)
DECOY(ddot_)
DECOY(daxpy_)
DECOY(dswap_)
DECOY(xerbla_)
DECOY(cblas_xerbla)
DECOY(gotoblas)
DECOY(blas_memory_alloc)
