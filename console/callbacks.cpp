#include "console/callbacks.h"

#include "console/callback_arguments.h"
#include "console/error.h"
#include "console/host.h"
#include "console/print.h"

namespace modla::console {

namespace {

bool word_moduli = true;

std::vector<std::pair<std::string, Object>> own_callbacks;

Object make_callback(const CallbackDefinition &callback) {
    return keep(make_native(callback.name, [callback](const Arguments &arguments) {
        if (arguments.size() != callback.arguments) {
            throw HostError(std::string(callback.name) + " takes " + std::to_string(callback.arguments) + " arguments");
        }
        return callback.run(arguments);
    }));
}

}  // namespace

void define_callbacks() {
    if (own_callbacks.empty()) {
        for (const auto &list : {elimination_callbacks(), product_callbacks(), entry_callbacks()}) {
            for (const CallbackDefinition &callback : list) {
                own_callbacks.emplace_back(callback.name, make_callback(callback));
            }
        }
    }
    for (const auto &[name, procedure] : own_callbacks) assign_global(global_name(name), procedure);
}

Object own_callback(const std::string &wanted) {
    for (const auto &[name, procedure] : own_callbacks) {
        if (name == wanted) return procedure;
    }
    return 0;
}

void set_word_moduli(bool on) {
    word_moduli = on;
}

bool is_word_modulus(const mpz_class &p) {
    return word_moduli && mpz_sizeinbase(p.get_mpz_t(), 2) <= 32;
}

mpz_class modulus_argument(Object x) {
    if (!is_integer(x)) throw HostError("a modulus must be an integer, not " + to_line(x));
    mpz_class p = integer_of(x);
    if (p < 2) throw HostError("modulus must be at least 2");
    return p;
}

}  // namespace modla::console
