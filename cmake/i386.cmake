# i386 code with SSE2 arithmetic from an x86-64 compiler.
set(CMAKE_ASM_FLAGS_INIT "-m32")
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")
set(CMAKE_ASM_FLAGS_INIT "-m32")
set(MODLA_I386_LIBRARIES /usr/lib/i386-linux-gnu)
set(MODLA_I386_HEADERS /usr/include/i386-linux-gnu)
