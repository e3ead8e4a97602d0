#include "engine/row_operations.h"

#include "engine/processor.h"

namespace modla {

const RowInstructions *best_rows = nullptr;
bool best_rows_known = false;

const RowInstructions *find_best_rows() {
    const Processor &has = processor();
    best_rows = has.avx512_vnni ? &rows_with_avx512 : has.avx2 ? &rows_with_avx2 : nullptr;
    best_rows_known = true;
    return best_rows;
}

}  // namespace modla
