// Any text as a program of the console's language, with the library loaded.
#include "tests/fuzz/session.h"

using namespace modla_fuzz;

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    start_session();
    const Object refusal = make_native("no files", [](const std::vector<Object> &) -> Object {
        throw HostError("a fuzzer's program must not touch files");
    });
    for (const char *name : {"ReadMatrix", "WriteMatrix", "ReadLists", "run"}) define_protected(name, refusal);
    start = make_checkpoint();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string program(reinterpret_cast<const char *>(data), size);
    in_session([&] {
        set_unwinding(size % 2 ? Unwinding::long_jump : Unwinding::exception);
        set_collect_always(size % 8 < 2);
        run_program(program, [](Object value) { to_text(value); });
    });
    return 0;
}
