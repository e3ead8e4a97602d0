/* The public header, read by a C compiler: names every function that it declares.  The C++ twin includes this file. */
#include "modla.h"

#define ADDRESS(function) (void (*)(void)) function

typedef void (*AnyFunction)(void);

static const AnyFunction functions[] = {ADDRESS(modLA_Register),
                                        ADDRESS(modLA_getfcn),
                                        ADDRESS(modLA_Create),
                                        ADDRESS(modLA_Fill),
                                        ADDRESS(modLA_RowReduce),
                                        ADDRESS(modLA_Copy),
                                        ADDRESS(modLA_Swap),
                                        ADDRESS(modLA_Permute),
                                        ADDRESS(modLA_Mod),
                                        ADDRESS(modLA_AddMult),
                                        ADDRESS(process_datatype),
                                        ADDRESS(validate_modulus),
                                        ADDRESS(validate_integer_modulus),
                                        ADDRESS(validate_integer_value),
                                        ADDRESS(isUnkn),
                                        ADDRESS(new_modLA_rtable),
                                        ADDRESS(data_to_modLA_rtable),
                                        ADDRESS(process_subspec),
                                        ADDRESS(process_flexinput),
                                        ADDRESS(modpow_iw),
                                        ADDRESS(modpow_f),
                                        ADDRESS(modinverse_iw),
                                        ADDRESS(modinverse_f),
                                        ADDRESS(modtolvexint_iw),
                                        ADDRESS(modtolvexint_f),
                                        ADDRESS(modunknpow_iw),
                                        ADDRESS(modunknpow_f),
                                        ADDRESS(modeval_iw),
                                        ADDRESS(modeval_f),
                                        ADDRESS(modzppolyeval_iw),
                                        ADDRESS(modzppolyeval_f),
                                        ADDRESS(M_INTtoTolvexInt),
                                        ADDRESS(floattoTolvexInt_32),
                                        ADDRESS(rand_fill_iw),
                                        ADDRESS(rand_fill_f),
                                        ADDRESS(modLA_reduce_C_iw),
                                        ADDRESS(modLA_reduce_F_iw),
                                        ADDRESS(modLA_reduce_C_iw_nop),
                                        ADDRESS(modLA_reduce_F_iw_nop),
                                        ADDRESS(modLA_reduce_C_f_nop),
                                        ADDRESS(modLA_reduce_F_f_nop),
                                        ADDRESS(modLA_LUDecomp),
                                        ADDRESS(modLA_ForSub),
                                        ADDRESS(modLA_BackSub),
                                        ADDRESS(modLA_Determinant),
                                        ADDRESS(modLA_MatBasis),
                                        ADDRESS(modLA_LU_C_iw_nop),
                                        ADDRESS(modLA_LU_C_f_nop),
                                        ADDRESS(modLA_LU_F_iw_nop),
                                        ADDRESS(modLA_LU_F_f_nop),
                                        ADDRESS(modLA_ForSub_C_iw_nop),
                                        ADDRESS(modLA_ForSub_C_f_nop),
                                        ADDRESS(modLA_ForSub_F_iw_nop),
                                        ADDRESS(modLA_ForSub_F_f_nop),
                                        ADDRESS(modLA_BackSub_C_iw_nop),
                                        ADDRESS(modLA_BackSub_C_f_nop),
                                        ADDRESS(modLA_BackSub_F_iw_nop),
                                        ADDRESS(modLA_BackSub_F_f_nop),
                                        ADDRESS(modLA_MatGcd),
                                        ADDRESS(modLA_ZigZag),
                                        ADDRESS(modLA_RowGcd_C_iw),
                                        ADDRESS(modLA_RowGcd_C_f),
                                        ADDRESS(modLA_RowGcd_F_iw),
                                        ADDRESS(modLA_RowGcd_F_f),
                                        ADDRESS(modLA_ZigZag_C_iw),
                                        ADDRESS(modLA_ZigZag_C_f),
                                        ADDRESS(modLA_ZigZag_F_iw),
                                        ADDRESS(modLA_ZigZag_F_f),
                                        ADDRESS(modLA_Multiply),
                                        ADDRESS(modLA_MatMult_iw),
                                        ADDRESS(modLA_MatMult_f),
                                        ADDRESS(modLA_MatMatMult_iw),
                                        ADDRESS(modLA_MatMatMult_f),
                                        ADDRESS(modLA_MatMatMult_iw_SE),
                                        ADDRESS(modLA_MatMatMult_iw_SN),
                                        ADDRESS(modLA_MatMatMult_iw_S1),
                                        ADDRESS(modLA_MatMatMult_iw_NE),
                                        ADDRESS(modLA_MatMatMult_iw_NN),
                                        ADDRESS(modLA_MatMatMult_iw_N1),
                                        ADDRESS(modLA_MatMatMult_f_SN),
                                        ADDRESS(modLA_MatMatMult_f_S1),
                                        ADDRESS(modLA_MatMatMult_f_NN),
                                        ADDRESS(modLA_MatMatMult_f_N1),
                                        ADDRESS(modLA_MatMatBLAS),
                                        ADDRESS(modLA_StrMatMult_iw),
                                        ADDRESS(modLA_StrMatMult_f),
                                        ADDRESS(modLA_MatMatAdd_iw),
                                        ADDRESS(modLA_MatMatAdd_f),
                                        ADDRESS(modLA_MatMatSub_iw),
                                        ADDRESS(modLA_MatMatSub_f)};

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
