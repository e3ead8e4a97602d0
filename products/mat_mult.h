// The general products, telling whether the workspace that they needed could be had.
#pragma once

#include "modla.h"

namespace modla {

// modLA_MatMult_iw and modLA_MatMult_f.  created: the workspace object, or 0.  False after an error of the host that came
// back; C is not written then.
bool multiply_words(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(uint32_t), int32_t sparse, uint32_t *workspace,
                    int32_t length, int32_t threshold, HostObject *created);
bool multiply_floats(const HostApi *api, MODLA_PRODUCT_ARGUMENTS(double), int32_t sparse, double *workspace,
                     int32_t length, HostObject *created);

}  // namespace modla
