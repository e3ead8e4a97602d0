// M4RI: packed bits, p = 2.
extern "C" {
#include <m4ri/m4ri.h>
}

#include <memory>

#include "driver.h"

using namespace bench;

namespace {

std::shared_ptr<mzd_t> matrix(const Row &row, const Residues &entries = {}) {
    const std::shared_ptr<mzd_t> M(mzd_init(row.n, row.n), mzd_free);
    for (size_t k = 0; k < entries.size(); k++)
        mzd_write_bit(M.get(), static_cast<int>(k) / row.n, static_cast<int>(k) % row.n, entries[k]);
    return M;
}

Task multiply(const Row &row) {
    const auto A = matrix(row, square_matrix(row, 1)), B = matrix(row, square_matrix(row, 2)), C = matrix(row);
    return {nullptr, [=] { mzd_mul(C.get(), A.get(), B.get(), 0); },
            [=] {
                return hash(static_cast<size_t>(row.n) * static_cast<size_t>(row.n), [&](size_t k) {
                    return mzd_read_bit(C.get(), static_cast<int>(k) / row.n, static_cast<int>(k) % row.n);
                });
            }};
}

Ways ways(const Row &row) {
    if (row.p != 2 || row.work != "multiply") return {};
    return {{"m4ri", [=] { return multiply(row); }}};
}

}  // namespace

int main() {
    return serve(ways);
}
